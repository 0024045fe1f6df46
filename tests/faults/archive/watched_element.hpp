// SPDX-License-Identifier: Apache-2.0
// An element whose scratch area has a limited size, with checks of everything around that area.
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

// The properties of everything below a directory, except one path in it.
using surroundings = std::map<std::string, std::string>;
[[nodiscard]] surroundings surroundings_of(const std::string &root, const std::string &left_out);

// Mode, owner and group.
[[nodiscard]] std::string rights_of(const std::string &path);

// Paths below a directory that are neither directories nor plain files. A plain file has one link
// and no set-user-ID or set-group-ID bit.
[[nodiscard]] std::vector<std::string> foreign_below(const std::string &root);

// All files below a directory, relative to it.
[[nodiscard]] std::vector<std::string> files_below(const std::string &root);

// Records the peak disk usage of a volume while the object exists.
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

// The peak memory of this process since the last reset.
void reset_most_memory();
[[nodiscard]] std::uint64_t most_memory();

class watched_element {
 public:
  // As root, mounts the scratch area, and then becomes the other user if requested.
  watched_element(const std::string &place, bool as_other_user);

  [[nodiscard]] std::string scratch() const { return tested.dir() / "scratch"; }
  [[nodiscard]] surroundings around() const;

  service remote;
  element tested;

 private:
  std::string place_;
};

}  // namespace zot::test
