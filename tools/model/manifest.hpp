// SPDX-License-Identifier: Apache-2.0
// What a K says, and its text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/model/names.hpp"

namespace zotconf {

// One file of a configuration.
struct published_file {
  int32_t category = 0;
  std::string category_name;
  std::string key;
  uint64_t version = 0;
  uint64_t size = 0;
  std::string checksum;
};

// What K says.
struct manifest {
  std::string cluster;
  std::string config_id;  // empty: absent
  std::string firmware;   // empty: absent
  // Whose configuration it is, and a number that rises with each publication of it, so that a
  // signature holds for one element and one order. The library reads neither.
  element who{};
  uint64_t sequence = 0;  // 0: absent, and `who` with it
  std::vector<published_file> files;
};

std::string render_manifest(const manifest &content);

// Nothing for a text that is no K.
std::optional<manifest> parse_manifest(const std::string &text);

}  // namespace zotconf
