// SPDX-License-Identifier: Apache-2.0
// `zotconf diff`: the changes from one K to another, marked by the library's own rule.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/cache/entry_filter.hpp"
#include "tools/model/names.hpp"
#include "tools/model/stored_k.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct diff_options {
  std::string from;
  std::string to;
  element who{.subsys = "AP", .index = ""};
  entry_filter filter;
  bool all = false;        // unchanged entries too
  bool stat = false;       // totals by category instead of entries
  bool exit_code = false;  // return exit_different when entries differ
};

// One entry that either K has, or both.
struct difference {
  uint32_t mark = 0;  // ZOT_STAT_ADDED, ZOT_STAT_DELETED, ZOT_STAT_MODIFIED or ZOT_STAT_UNCHANGED
  std::optional<listed_file> before;
  std::optional<listed_file> after;

  [[nodiscard]] const listed_file &entry() const { return after ? *after : *before; }
};

// The entries of two good K, sorted by category and key.
std::vector<difference> differences(const stored_k &from, const stored_k &to);

// Returns an exit status; throws std::runtime_error when one of the K is missing or damaged.
int run_diff(const diff_options &options, const console &where);

}  // namespace zotconf
