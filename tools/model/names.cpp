// SPDX-License-Identifier: Apache-2.0
#include "tools/model/names.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "tools/output/plain_text.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

constexpr std::array<std::string_view, 3> subsystems = {"AP", "CP", "DP"};

bool is_dot_name(std::string_view name) {
  return name == "." || name == "..";
}

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

// Checks that K, which is JSON text, can hold the text unchanged.
std::string check_text(std::string_view text, size_t longest) {
  if (text.size() > longest) {
    return "is longer than " + std::to_string(longest) + " bytes";
  }
  if (std::ranges::any_of(text, is_control)) {
    return "contains a control character";
  }
  return is_utf8(text) ? "" : "is not UTF-8";
}

}  // namespace

std::string check_subsys(std::string_view subsys) {
  return std::ranges::find(subsystems, subsys) != subsystems.end() ? "" : "must be AP, CP or DP";
}

std::string check_index(std::string_view index) {
  const auto allowed = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
           std::string_view(":._-").find(c) != std::string_view::npos;
  };
  if (index.empty() || index.size() > ZOT_SUB_NAME_LEN || is_dot_name(index) ||
      !std::ranges::all_of(index, allowed)) {
    return "must be 1 to 17 characters from 0-9 A-Z a-z : . _ -";
  }
  return "";
}

std::string check_cluster(std::string_view cluster) {
  return cluster.empty() ? "is empty" : check_text(cluster, ZOT_UUID_LEN);
}

std::string check_uuid(std::string_view uuid) {
  constexpr const char *wrong = "must be a UUID, 36 characters";
  if (uuid.size() != ZOT_UUID_LEN) {
    return wrong;
  }
  for (size_t i = 0; i < uuid.size(); ++i) {
    const bool at_dash = i == 8 || i == 13 || i == 18 || i == 23;
    const bool fits =
        at_dash ? uuid[i] == '-' : std::isxdigit(static_cast<unsigned char>(uuid[i])) != 0;
    if (!fits) {
      return wrong;
    }
  }
  return "";
}

std::string check_firmware(std::string_view firmware) {
  return check_text(firmware, ZOT_FIRMWARE_LEN);
}

std::string check_key(std::string_view key) {
  if (key.empty() || is_dot_name(key) || key.find('/') != std::string_view::npos) {
    return "cannot be a path component";
  }
  if (key.size() > ZOT_KEY_LEN) {
    return "has a key over 52 characters";
  }
  return check_text(key, ZOT_KEY_LEN);
}

std::optional<uint64_t> parse_version(std::string_view text) {
  uint64_t version = 0;
  const char *const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, version);
  if (error != std::errc{} || stop != end) {
    return std::nullopt;
  }
  return version;
}

std::string upper_case(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(),
                         [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return result;
}

}  // namespace zotconf
