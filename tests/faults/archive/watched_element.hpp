// SPDX-License-Identifier: Apache-2.0
// An element with a scratch area of limited size, and a watch on everything around that area.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/element.hpp"
#include "tests/support/publication.hpp"
#include "tests/support/service.hpp"

namespace zot::test {

// Everything that can be told of all that lies below a directory but for one path in it.
using surroundings = std::map<std::string, std::string>;
[[nodiscard]] surroundings surroundings_of(const std::string &root, const std::string &left_out);

// Mode and owners.
[[nodiscard]] std::string rights_of(const std::string &path);

// Names of what lies below a directory and is neither a directory nor a file of one name without
// rights of its owner's.
[[nodiscard]] std::vector<std::string> foreign_below(const std::string &root);

// Files below a directory, relative to it, whoever may read them.
[[nodiscard]] std::vector<std::string> files_below(const std::string &root);

// The most room that a volume had in use while this watched.
class room_watch {
 public:
  explicit room_watch(std::string path);
  room_watch(const room_watch &) = delete;
  room_watch &operator=(const room_watch &) = delete;
  ~room_watch();

  [[nodiscard]] std::uint64_t most_bytes() const { return bytes_; }
  [[nodiscard]] std::uint64_t most_files() const { return files_; }

 private:
  void look();

  std::string path_;
  std::atomic<std::uint64_t> bytes_ = 0;
  std::atomic<std::uint64_t> files_ = 0;
  std::atomic<bool> over_ = false;
  std::thread looking_;
};

// The most memory that this process had in use since the last reset.
void reset_most_memory();
[[nodiscard]] std::uint64_t most_memory();

class watched_element {
 public:
  // Mounts the scratch area where root runs this; goes on as the other user where that is asked
  // for.
  watched_element(const std::string &place, bool as_other_user);

  [[nodiscard]] std::string scratch() const { return tested.dir() / "scratch"; }
  [[nodiscard]] surroundings around() const;

  service remote;
  element tested;

 private:
  std::string place_;
};

}  // namespace zot::test
