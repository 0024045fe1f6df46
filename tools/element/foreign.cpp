// SPDX-License-Identifier: Apache-2.0
#include "tools/element/foreign.hpp"

#include <cjson/cJSON.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ostream>
#include <string>

#include "tools/model/names.hpp"
#include "tools/output/error_text.hpp"

namespace zotconf {
namespace {

// The library and K use this many characters of an index.
constexpr size_t index_length = 17;

std::string user_name(uid_t user) {
  const struct passwd *const entry = ::getpwuid(user);
  return entry != nullptr ? entry->pw_name : std::to_string(user);
}

std::string member(const cJSON *root, const char *name) {
  const char *const text = cJSON_GetStringValue(cJSON_GetObjectItem(root, name));
  return text == nullptr ? "" : text;
}

}  // namespace

void warn_of_foreign_owner(const zot_ctx &handle, std::ostream &err) {
  struct stat cache {};
  if (::stat(handle.conf_root, &cache) != 0 || cache.st_uid == ::geteuid()) {
    return;
  }
  const std::string owner = user_name(cache.st_uid);
  tell_warning(err, std::string(handle.conf_root) + ": belongs to the user " + owner +
                        ", who cannot replace files that this process commits; run zotconf as " +
                        owner);
}

void warn_of_foreign_configuration(zot_ctx &handle, uint32_t slot, std::string_view index,
                                   std::ostream &err) {
  const zot_k *const k = zot_priv_get_k(&handle, slot);
  if (k == nullptr) {
    return;
  }
  const std::string own = upper_case(index).substr(0, index_length);
  const std::string stated = member(k->json, "index");
  if (!stated.empty() && stated != own) {
    tell_warning(err, std::string(slot == ZOT_SLOT_CURRENT ? "the configuration in force"
                                                           : "the new configuration") +
                          " was published for " + member(k->json, "subsys") + " " + stated +
                          ", not for " + own);
  }
}

}  // namespace zotconf
