// SPDX-License-Identifier: Apache-2.0
// The possible contents of a medium after a power loss, while files change and are synchronised.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/faults/calls/stage.hpp"

namespace zot::test {

// Everything below a folder, with the names that share a file.
struct medium {
  file_tree tree;
  std::map<std::string, std::string> links;  // a name, and an earlier one of the same file

  auto operator<=>(const medium &) const = default;
};

void write_medium(const std::string &root, const medium &held);

// A file or folder by its inode, which stays the same when the name is another one. The time of its
// birth tells it from an earlier one with that number.
struct inode_id {
  std::uint64_t number = 0;
  std::int64_t born = 0;
  auto operator<=>(const inode_id &) const = default;
};

// The entry of a folder.
using place = std::pair<inode_id, std::string>;

struct snapshot {
  std::map<place, inode_id> names;
  std::map<inode_id, std::string> bytes;  // of files
};

// Follows one folder below a root. What was there at a synchronisation stays; of what changed
// since, anything may be there or not, in any order, with these exceptions: an entry that moves is
// at one place or the other, a folder with all that is in it; and the changes of one entry come in
// their order.
class medium_watch {
 public:
  // What is there now has been synchronised.
  medium_watch(std::string root, std::string folder);

  // Call it before each call that may change something, and at the end.
  void look();
  // Before the file system, or a file or folder of it alone, is synchronised.
  void synchronise();
  void synchronise(const inode_id &one);

  [[nodiscard]] std::size_t states() const { return states_; }
  // What the medium may have held up to the last look.
  [[nodiscard]] const std::set<medium> &passed() const { return passed_; }
  // What it may hold if nothing changes any more.
  [[nodiscard]] std::set<medium> possible_now() const;

 private:
  using entry = std::pair<place, std::optional<inode_id>>;
  using names = std::map<place, inode_id>;
  using contents = std::map<inode_id, std::string>;
  // One entry that comes, goes or changes, or two when it moves.
  using name_change = std::vector<entry>;
  // For each change of a name, and then for each file that was written, whether it is there.
  using choice = std::vector<bool>;

  [[nodiscard]] snapshot read() const;
  void add_name_changes(std::vector<entry> changed);
  [[nodiscard]] std::size_t changes() const { return pending_.size() + dirty_.size(); }
  [[nodiscard]] choice with_predecessors(choice chosen) const;
  [[nodiscard]] bool is_predecessor(const name_change &earlier, const name_change &later) const;
  [[nodiscard]] names names_with(const choice &chosen) const;
  [[nodiscard]] contents bytes_with(const choice &chosen) const;
  [[nodiscard]] medium form(const names &held, const contents &bytes) const;
  [[nodiscard]] medium form(const choice &chosen) const;
  void add_damaged_files(std::set<medium> &forms) const;
  void add_subsets(std::set<medium> &forms) const;
  void add_small_and_large_subsets(std::set<medium> &forms) const;
  void add_drawn_subsets(std::set<medium> &forms) const;

  const std::string root_;
  const std::string folder_;
  const inode_id root_id_;
  names names_;
  contents bytes_;  // also of files whose names have gone
  names durable_names_;
  contents durable_bytes_;
  std::vector<name_change> pending_;
  std::vector<inode_id> dirty_;
  std::size_t states_ = 0;
  std::set<medium> passed_;
};

// Of what a path leads to.
[[nodiscard]] inode_id id_of(const std::string &path);

}  // namespace zot::test
