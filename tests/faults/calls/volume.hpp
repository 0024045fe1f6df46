// SPDX-License-Identifier: Apache-2.0
// A small file system of its own, which can be full, short of inodes or read-only.
#pragma once

#include <sys/statvfs.h>

#include <string>

namespace zot::test {

enum class shortage { room, files, read_only };

[[nodiscard]] const char *name_of(shortage lacking);

// A mounted tmpfs of 1 MiB; the destructor unmounts it.
class volume {
 public:
  explicit volume(std::string path);
  volume(const volume &) = delete;
  volume &operator=(const volume &) = delete;
  ~volume();

  // Leaves so many pages of 4 KiB or so many inodes.
  void take(shortage lacking, unsigned left) const;
  void give_back() const;

 private:
  [[nodiscard]] std::string filler() const { return path_ + "/filler"; }
  [[nodiscard]] struct statvfs state() const;
  void fill(unsigned pages_left) const;
  void remount(unsigned long flags, const std::string &options) const;

  const std::string path_;
};

// Enters a mount namespace for this process and its children. Returns false where that is not
// allowed.
[[nodiscard]] bool enter_own_mounts();

}  // namespace zot::test
