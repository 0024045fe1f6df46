// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/medium.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <random>
#include <system_error>

namespace zot::test {
namespace {

namespace fs = std::filesystem;

// With more changes than this, only a fixed number of random subsets is tried.
constexpr std::size_t most_for_all_subsets = 12;
constexpr unsigned drawn_subsets = 512;

void read_below(const std::string &folder, const inode_id &id, snapshot &found) {
  for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
    const std::string path = entry.path().string();
    const inode_id child = id_of(path);
    found.names.emplace(place{id, entry.path().filename().string()}, child);
    if (entry.is_directory()) {
      read_below(path, child, found);
    } else {
      found.bytes.emplace(child, read_bytes(path));
    }
  }
}

// What a file may contain when only some of its bytes have reached the medium.
std::vector<std::string> damaged(const std::string &bytes) {
  const std::size_t size = bytes.size();
  return {std::string(), bytes.substr(0, size / 2), std::string(size, '\0')};
}

}  // namespace

inode_id id_of(const std::string &path) {
  constexpr std::int64_t second = 1000000000;
  struct statx found {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &found) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  return {found.stx_ino, found.stx_btime.tv_sec * second + found.stx_btime.tv_nsec};
}

void write_medium(const std::string &root, const medium &held) {
  write_tree(root, held.tree);
  for (const auto &[name, earlier] : held.links) {
    const std::string path = root + "/" + name;
    fs::remove(path);
    fs::create_hard_link(root + "/" + earlier, path);
  }
}

medium_watch::medium_watch(std::string root, std::string folder)
    : root_(std::move(root)), folder_(std::move(folder)), root_id_(id_of(root_)) {
  snapshot found = read();
  names_ = durable_names_ = found.names;
  bytes_ = durable_bytes_ = found.bytes;
  passed_.insert(form(names_, bytes_));
}

snapshot medium_watch::read() const {
  snapshot found;
  if (const std::string path = root_ + "/" + folder_; fs::is_directory(path)) {
    const inode_id id = id_of(path);
    found.names.emplace(place{root_id_, folder_}, id);
    read_below(path, id, found);
  }
  return found;
}

void medium_watch::look() {
  snapshot found = read();
  std::vector<entry> changed;
  for (const auto &[where, id] : names_) {
    if (!found.names.contains(where)) {
      changed.emplace_back(where, std::nullopt);
    }
  }
  for (const auto &[where, id] : found.names) {
    if (const auto before = names_.find(where); before == names_.end() || before->second != id) {
      changed.emplace_back(where, id);
    }
  }
  bool is_written = false;
  for (auto &[id, bytes] : found.bytes) {
    const auto before = bytes_.find(id);
    if (before != bytes_.end() && before->second == bytes) {
      continue;
    }
    is_written = true;
    bytes_[id] = std::move(bytes);
    if (std::ranges::find(dirty_, id) == dirty_.end()) {
      dirty_.push_back(id);
    }
  }
  if (changed.empty() && !is_written) {
    return;
  }
  add_name_changes(std::move(changed));
  names_ = std::move(found.names);
  ++states_;
  add_damaged_files(passed_);
}

// When an entry disappears and the same inode appears elsewhere, the entry has moved.
void medium_watch::add_name_changes(std::vector<entry> changed) {
  while (!changed.empty()) {
    name_change one = {changed.back()};
    changed.pop_back();
    const auto is_other_end = [&](const entry &other) {
      const entry &first = one.front();
      const auto held_before = [this](const entry &of) {
        const auto found = names_.find(of.first);
        return found != names_.end() ? std::optional(found->second) : std::nullopt;
      };
      return (first.second.has_value() && held_before(other) == first.second) ||
             (other.second.has_value() && held_before(first) == other.second);
    };
    if (const auto other = std::ranges::find_if(changed, is_other_end); other != changed.end()) {
      one.push_back(*other);
      changed.erase(other);
    }
    pending_.push_back(std::move(one));
  }
}

void medium_watch::synchronise() {
  passed_.merge(possible_now());
  durable_names_ = names_;
  durable_bytes_ = bytes_;
  pending_.clear();
  dirty_.clear();
}

void medium_watch::synchronise(const inode_id &one) {
  passed_.merge(possible_now());
  if (std::erase(dirty_, one) != 0) {
    durable_bytes_[one] = bytes_.at(one);
  }
  choice reached(changes(), false);
  for (std::size_t at = 0; at < pending_.size(); ++at) {
    reached[at] = std::ranges::any_of(
        pending_[at], [&](const entry &changed) { return changed.first.first == one; });
  }
  reached = with_predecessors(std::move(reached));
  durable_names_ = names_with(reached);
  std::vector<name_change> left;
  for (std::size_t at = 0; at < pending_.size(); ++at) {
    if (!reached[at]) {
      left.push_back(pending_[at]);
    }
  }
  pending_ = std::move(left);
}

bool medium_watch::is_predecessor(const name_change &earlier, const name_change &later) const {
  return std::ranges::any_of(earlier, [&](const entry &before) {
    return std::ranges::any_of(later,
                               [&](const entry &after) { return after.first == before.first; });
  });
}

medium_watch::choice medium_watch::with_predecessors(choice chosen) const {
  for (std::size_t later = pending_.size(); later > 0; --later) {
    for (std::size_t at = 0; chosen[later - 1] && at < later - 1; ++at) {
      chosen[at] = chosen[at] || is_predecessor(pending_[at], pending_[later - 1]);
    }
  }
  return chosen;
}

medium_watch::names medium_watch::names_with(const choice &chosen) const {
  names held = durable_names_;
  for (std::size_t at = 0; at < pending_.size(); ++at) {
    if (!chosen[at]) {
      continue;
    }
    for (const auto &[where, id] : pending_[at]) {
      if (id.has_value()) {
        held[where] = *id;
      } else {
        held.erase(where);
      }
    }
  }
  return held;
}

medium_watch::contents medium_watch::bytes_with(const choice &chosen) const {
  contents bytes = bytes_;
  for (std::size_t at = 0; at < dirty_.size(); ++at) {
    if (!chosen[pending_.size() + at]) {
      const auto durable = durable_bytes_.find(dirty_[at]);
      bytes[dirty_[at]] = durable != durable_bytes_.end() ? durable->second : std::string();
    }
  }
  return bytes;
}

medium medium_watch::form(const names &held, const contents &bytes) const {
  medium made;
  std::map<inode_id, std::string> first_names;
  const auto add_below = [&](const auto &self, const inode_id &folder,
                             const std::string &path) -> void {
    for (auto at = held.lower_bound({folder, ""}); at != held.end() && at->first.first == folder;
         ++at) {
      const std::string name = path + at->first.second;
      const auto file = bytes.find(at->second);
      if (file == bytes.end()) {
        made.tree.emplace(name + "/", "");
        self(self, at->second, name + "/");
        continue;
      }
      made.tree.emplace(name, file->second);
      if (const auto first = first_names.emplace(at->second, name); !first.second) {
        made.links.emplace(name, first.first->second);
      }
    }
  };
  add_below(add_below, root_id_, "");
  return made;
}

medium medium_watch::form(const choice &chosen) const {
  const choice complete = with_predecessors(chosen);
  return form(names_with(complete), bytes_with(complete));
}

// All names in their current state; one or all of the written files damaged.
void medium_watch::add_damaged_files(std::set<medium> &forms) const {
  forms.insert(form(names_, bytes_));
  std::vector<contents> all(damaged({}).size(), bytes_);
  for (const inode_id &id : dirty_) {
    const std::vector<std::string> kinds = damaged(bytes_.at(id));
    for (std::size_t kind = 0; kind < kinds.size(); ++kind) {
      contents one = bytes_;
      one[id] = all[kind][id] = kinds[kind];
      forms.insert(form(names_, one));
    }
  }
  for (const contents &damaged_bytes : all) {
    forms.insert(form(names_, damaged_bytes));
  }
}

void medium_watch::add_subsets(std::set<medium> &forms) const {
  if (changes() > most_for_all_subsets) {
    add_small_and_large_subsets(forms);
    add_drawn_subsets(forms);
    return;
  }
  for (unsigned subset = 0; subset < 1U << changes(); ++subset) {
    choice chosen(changes());
    for (std::size_t at = 0; at < changes(); ++at) {
      chosen[at] = (subset >> at & 1U) != 0;
    }
    forms.insert(form(chosen));
  }
}

// None, one or two of the changes; all, and all except one or two.
void medium_watch::add_small_and_large_subsets(std::set<medium> &forms) const {
  for (const bool is_there : {false, true}) {
    for (std::size_t one = 0; one < changes(); ++one) {
      for (std::size_t other = 0; other <= one; ++other) {
        choice chosen(changes(), is_there);
        forms.insert(form(chosen));
        chosen[one] = !is_there;
        forms.insert(form(chosen));
        chosen[other] = !is_there;
        forms.insert(form(chosen));
      }
    }
  }
}

// The seed is fixed, so every run draws the same subsets.
void medium_watch::add_drawn_subsets(std::set<medium> &forms) const {
  std::mt19937 engine;
  for (unsigned drawn = 0; drawn < drawn_subsets; ++drawn) {
    choice chosen(changes());
    for (std::size_t at = 0; at < changes(); ++at) {
      chosen[at] = (engine() & 1U) != 0;
    }
    forms.insert(form(chosen));
  }
}

std::set<medium> medium_watch::possible_now() const {
  std::set<medium> forms;
  add_damaged_files(forms);
  add_subsets(forms);
  return forms;
}

}  // namespace zot::test
