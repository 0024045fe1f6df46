// SPDX-License-Identifier: Apache-2.0
// What a publication is going to change, decided before anything is written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/manifest.hpp"
#include "tools/publication/publication_store.hpp"

namespace zotconf {

// What becomes of an entry: the one of the K before, the one of the next K. One of them may be
// missing.
struct entry_change {
  std::optional<published_file> before;
  std::optional<published_file> after;

  [[nodiscard]] const published_file &entry() const { return after ? *after : *before; }
  // new, changed or removed
  [[nodiscard]] const char *name() const;
  [[nodiscard]] std::optional<uint64_t> old_version() const;
  [[nodiscard]] std::optional<uint64_t> new_version() const;
};

struct plan {
  manifest next;
  std::vector<entry_change> changes;
  size_t before = 0;   // entries of the K before
  size_t same = 0;     // entries that did not change
  size_t written = 0;  // files that were not there

  [[nodiscard]] size_t count(std::string_view name) const;
  // The entries of the K before whose files the next one does not name.
  [[nodiscard]] std::vector<published_file> dropped() const;
};

// Gives each file of `next` its version: that of the K before when the bytes are the same, else one
// that lies here with these bytes, whoever brought it, else one that no file has had.
plan make_plan(const publication_store &store, const manifest &before, manifest next);

// Throws a refusal when more than this share of the entries, in percent, would be removed: a source
// that lost its files by mistake must not take them from the element.
void check_removals(const plan &planned, unsigned share, const fs::path &source);

}  // namespace zotconf
