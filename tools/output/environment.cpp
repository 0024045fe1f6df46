// SPDX-License-Identifier: Apache-2.0
#include "tools/output/environment.hpp"

#include <charconv>
#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>

#include "tools/output/error_text.hpp"
#include "utilities/shell_word.hpp"
#include "utilities/text.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t highest_port = 65535;

void warn(const console &where, const char *name, std::string_view value, const std::string &what) {
  tell_warning(where.err(), std::string(name) + "=\"" + std::string(value) + "\": " + what);
}

bool is_port(std::string_view text) {
  uint32_t port = 0;
  const char *const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, port);
  return error == std::errc() && stopped == end && port >= 1 && port <= highest_port;
}

void check_port(const console &where) {
  constexpr const char *name = "ZOT_REMOTE_PORT";
  const char *const value = zot::environment(name);
  if (value == nullptr || is_port(value)) {
    return;
  }
  const uint32_t used = zot_sub_get_remote_port();
  warn(where, name, value,
       "not a port from 1 to 65535; " + (used <= highest_port
                                             ? "port " + std::to_string(used) + " is used"
                                             : "no other port is used, and every request fails"));
}

void check_prefix(const console &where, const char *name) {
  const char *const value = zot::environment(name);
  if (value == nullptr) {
    return;
  }
  std::error_code unknown;
  if (!zot::is_plain_shell_word(value)) {
    warn(where, name, value,
         "contains characters that a shell interprets; no other path is used, and every get fails");
  } else if (fs::exists(value, unknown) && !fs::is_directory(value, unknown)) {
    warn(where, name, value, "not a directory; no other path is used, and every get fails");
  }
}

void check_dev_path(const console &where, const char *value) {
  std::error_code unknown;
  if (!fs::is_directory(value, unknown)) {
    warn(where, "ZOT_DEV_PATH", value,
         "not a directory; no configuration is read, and the service is not used instead");
  }
}

}  // namespace

void warn_of_environment(const console &where, use_of_service use) {
  if (const char *const dev_path = zot::environment("ZOT_DEV_PATH"); dev_path != nullptr) {
    check_dev_path(where, dev_path);
    check_prefix(where, "ZOT_PREFIX_TMP_ROOT");
    return;
  }
  check_prefix(where, "ZOT_PREFIX_CONF_ROOT");
  check_prefix(where, "ZOT_PREFIX_TMP_ROOT");
  if (use == use_of_service::asked) {
    check_port(where);
  }
}

}  // namespace zotconf
