// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/plan.hpp"

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>

#include "tools/publication/source_folder.hpp"

namespace zotconf {
namespace {

auto name_of(const published_file *file) {
  return std::tie(file->category, file->key);
}

// The files of a K by name; of two with one name, the first.
std::vector<const published_file *> by_name(const std::vector<published_file> &files) {
  std::vector<const published_file *> sorted;
  sorted.reserve(files.size());
  for (const published_file &file : files) {
    sorted.push_back(&file);
  }
  if (!std::ranges::is_sorted(sorted, {}, name_of)) {
    std::ranges::stable_sort(sorted, {}, name_of);
  }
  const auto is_same_name = [](const published_file *one, const published_file *other) {
    return name_of(one) == name_of(other);
  };
  sorted.erase(std::unique(sorted.begin(), sorted.end(), is_same_name), sorted.end());
  return sorted;
}

// Chooses the version of one file and notes what is to be written.
void choose_version(version_catalog &catalog, const published_file *old, published_file &file,
                    plan &result) {
  // Counts the previous version too: its file may be missing.
  const uint64_t known = old == nullptr ? 0 : old->version;
  const bool is_same = old != nullptr && old->checksum == file.checksum;
  file.version = is_same ? known : catalog.choose(file, known);
  version_state state = catalog.use(file);
  if (state == version_state::taken) {
    file.version = catalog.choose(file, known);
    state = catalog.use(file);
  }
  if (state != version_state::stored) {
    ++result.written;
  }
  if (state == version_state::to_write) {
    result.to_write.push_back(file);
  }
  if (is_same && file.version == known) {
    ++result.same;
    return;
  }
  result.changes.push_back(
      {.before = old == nullptr ? std::nullopt : std::optional(*old), .after = file});
}

void add_removed(plan &result, std::vector<const published_file *> removed) {
  std::ranges::sort(removed, {}, [](const published_file *file) {
    return std::tie(file->category_name, file->key);
  });
  for (const published_file *const file : removed) {
    result.changes.push_back({.before = *file, .after = std::nullopt});
  }
}

}  // namespace

const char *entry_change::name() const {
  if (!before) {
    return "new";
  }
  return after ? "changed" : "removed";
}

std::optional<uint64_t> entry_change::old_version() const {
  return before ? std::optional(before->version) : std::nullopt;
}

std::optional<uint64_t> entry_change::new_version() const {
  return after ? std::optional(after->version) : std::nullopt;
}

size_t plan::count(std::string_view name) const {
  const auto has_name = [name](const entry_change &each) { return each.name() == name; };
  return static_cast<size_t>(std::ranges::count_if(changes, has_name));
}

std::vector<published_file> plan::dropped() const {
  std::vector<published_file> result;
  for (const entry_change &each : changes) {
    if (each.before && each.old_version() != each.new_version()) {
      result.push_back(*each.before);
    }
  }
  return result;
}

plan make_plan(version_catalog &catalog, const manifest &before, manifest next,
               progress &compared) {
  plan result{.next = std::move(next), .changes = {}, .to_write = {}};
  const auto old_files = by_name(before.files);
  result.before = old_files.size();
  std::vector<const published_file *> removed;
  auto old = old_files.begin();
  for (published_file &file : result.next.files) {
    for (; old != old_files.end() && name_of(*old) < name_of(&file); ++old) {
      removed.push_back(*old);
    }
    const bool is_there = old != old_files.end() && name_of(*old) == name_of(&file);
    choose_version(catalog, is_there ? *old++ : nullptr, file, result);
    compared.advance(file.size);
  }
  removed.insert(removed.end(), old, old_files.end());
  add_removed(result, std::move(removed));
  return result;
}

void check_removals(const plan &planned, unsigned share, const fs::path &source) {
  const size_t removed = planned.count("removed");
  if (removed * 100 > planned.before * share) {
    throw refusal(source,
                  "lacks " + std::to_string(removed) + " of the " + std::to_string(planned.before) +
                      " entries published before, more than " + std::to_string(share) +
                      "%; see --max-removed",
                  "zotconf publish --help");
  }
}

}  // namespace zotconf
