// SPDX-License-Identifier: Apache-2.0
// Rules for names that become parts of paths and URLs. Each check returns an empty text when the
// name is valid, else the error.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zotconf {

// Identity of a managed element, as in its URLs.
struct element {
  std::string subsys;
  std::string index;  // upper case
};

std::string check_subsys(std::string_view subsys);
std::string check_index(std::string_view index);
std::string check_cluster(std::string_view cluster);
std::string check_uuid(std::string_view uuid);
std::string check_firmware(std::string_view firmware);
std::string check_key(std::string_view key);

// Parses a version as K and file names write it; nullopt for any other text.
std::optional<uint64_t> parse_version(std::string_view text);

std::string upper_case(std::string_view text);

}  // namespace zotconf
