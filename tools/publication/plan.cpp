// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/plan.hpp"

#include <algorithm>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

#include "tools/publication/source_folder.hpp"

namespace zotconf {
namespace {

using object_name = std::pair<std::string, std::string>;  // category, key

std::map<object_name, published_file> by_name(const std::vector<published_file> &files) {
  std::map<object_name, published_file> result;
  for (const published_file &file : files) {
    result.emplace(object_name(file.category_name, file.key), file);
  }
  return result;
}

uint64_t choose_version(const publication_store &store, const published_file &file,
                        uint64_t spent) {
  const std::vector<uint64_t> versions = store.versions_of(file);
  if (const auto same = store.find(file, versions)) {
    return *same;
  }
  const uint64_t here = versions.empty() ? 0 : versions.front();
  const uint64_t highest = std::max(here, spent);
  if (highest == std::numeric_limits<uint64_t>::max()) {
    throw std::runtime_error(file.category_name + "/" + file.key + ": no version number is left");
  }
  return highest + 1;
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

plan make_plan(const publication_store &store, const manifest &before, manifest next) {
  plan result{.next = std::move(next), .changes = {}};
  auto old_files = by_name(before.files);
  result.before = old_files.size();
  const uint64_t spent = store.spent_version();
  for (published_file &file : result.next.files) {
    const auto old = old_files.extract(object_name(file.category_name, file.key));
    if (!old.empty() && old.mapped().checksum == file.checksum) {
      file.version = old.mapped().version;
      ++result.same;
      continue;
    }
    // Counts the previous version too: its file may be missing.
    const uint64_t known = old.empty() ? 0 : old.mapped().version;
    file.version = choose_version(store, file, std::max(spent, known));
    result.changes.push_back(
        {.before = old.empty() ? std::nullopt : std::optional(old.mapped()), .after = file});
  }
  for (const auto &[name, file] : old_files) {
    result.changes.push_back({.before = file, .after = std::nullopt});
  }
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
