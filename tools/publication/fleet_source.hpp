// SPDX-License-Identifier: Apache-2.0
// The folder that `publish --fleet` reads:
//
//   common/<Category>/<key>             files of every element
//   elements/<INDEX>/<Category>/<key>   files of one element, instead of the common ones
//   elements/<INDEX>/removed            the common files that it does not get, one a line
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/manifest.hpp"
#include "tools/output/console.hpp"
#include "tools/publication/wave.hpp"

namespace zotconf {

// A part of a fleet that cannot be published.
struct refused_part {
  std::string index;  // empty: a part that no single element has
  std::string reason;
  std::string command{};  // one that helps; may be empty
};

struct fleet_element {
  std::string index;  // upper case
  fs::path folder;
  std::vector<published_file> own;  // sorted by category and key
  std::vector<size_t> removed;      // positions in the common files, sorted
};

struct fleet_source {
  fs::path common_folder;
  bool is_common_known = true;          // false: it is refused
  std::vector<published_file> common;   // sorted by category and key
  std::vector<fleet_element> elements;  // sorted by index, without those that are refused
  size_t fleet_size = 0;                // elements of the folder, also those outside the wave
  std::vector<fs::path> left_out;       // skipped files
  std::vector<refused_part> refused;
};

// Reads each file once, and none of an element outside the wave. Throws a refusal for a folder that
// is not that of a fleet, and for a wave that is no part of it.
fleet_source scan_fleet(const fs::path &folder, const console &where,
                        const std::optional<wave> &part = std::nullopt);

// A file of an element, and the folder that it comes from.
struct merged_file {
  published_file *file;
  const fs::path *folder;
};

// The files of an element, sorted by category and key: its own and those of common that it gets.
std::vector<merged_file> merge(fleet_source &source, fleet_element &of);

}  // namespace zotconf
