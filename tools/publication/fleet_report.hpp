// SPDX-License-Identifier: Apache-2.0
// What the publication of a fleet came to, as text and as JSON.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"
#include "tools/publication/fleet_source.hpp"

namespace zotconf {

// The entries that a publication changes in the configuration of one element.
struct element_changes {
  std::string index;
  size_t added = 0;
  size_t changed = 0;
  size_t same = 0;
  size_t removed = 0;
};

struct fleet_report {
  bool dry_run = false;
  bool is_signed = false;  // whether every K has a signature
  size_t elements = 0;
  std::optional<size_t> fleet_size;  // the elements of the fleet that the wave is part of
  size_t published = 0;
  size_t files = 0;                      // new files of the publication folder
  uint64_t bytes = 0;                    // their sizes
  std::vector<element_changes> changes;  // of the elements that are published
  std::vector<fs::path> left_out;
  std::vector<refused_part> refused;

  [[nodiscard]] const char *result() const;
};

// Lists at most this many refused parts and skipped files.
inline constexpr size_t most_listed = 20;

// Prints the skipped files and the refused parts.
void tell_fleet_problems(const console &where, const fleet_report &report);
void write_fleet_report(const console &where, const fleet_report &report);

}  // namespace zotconf
