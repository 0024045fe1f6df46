// SPDX-License-Identifier: Apache-2.0
// The changes of a publication, computed before anything is written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/manifest.hpp"
#include "tools/output/console.hpp"
#include "tools/publication/version_catalog.hpp"

namespace zotconf {

// The change of one entry: as the previous K has it, and as the next K has it. One of the two may
// be missing.
struct entry_change {
  std::optional<published_file> before;
  std::optional<published_file> after;

  [[nodiscard]] const published_file &entry() const { return after ? *after : *before; }
  // "new", "changed" or "removed"
  [[nodiscard]] const char *name() const;
  [[nodiscard]] std::optional<uint64_t> old_version() const;
  [[nodiscard]] std::optional<uint64_t> new_version() const;
};

struct plan {
  manifest next;
  std::vector<entry_change> changes;
  size_t before = 0;   // entries of the previous K
  size_t same = 0;     // unchanged entries
  size_t written = 0;  // files that the publication folder lacks
  // Those of them that no plan of the same catalog has named before.
  std::vector<published_file> to_write;

  [[nodiscard]] size_t count(std::string_view name) const;
  // The entries of the previous K whose files the next K does not name.
  [[nodiscard]] std::vector<published_file> dropped() const;
};

// Gives each file of `next` its version: the previous one when the bytes are the same, else a
// stored version with these bytes (of any element), else a version that was never used. The files
// of `next` are sorted by category and key.
plan make_plan(version_catalog &catalog, const manifest &before, manifest next, progress &compared);

// Throws a refusal when more than `share` percent of the entries would be removed. This protects
// the element against a source folder that has lost its files by mistake.
void check_removals(const plan &planned, unsigned share, const fs::path &source);

}  // namespace zotconf
