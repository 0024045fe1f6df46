// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/room.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "utilities/owner.hpp"
#include "zot_list.hpp"
#include "zot_priv/storage/directory_walk.hpp"
#include "zot_priv/storage/names.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {

using namespace zot::directory_walk;

constexpr uint64_t unlimited = UINT64_MAX;
// The unit of st_blocks, whatever the block size of the file system.
constexpr uint64_t stat_block = 512;

uint64_t size_on_medium(const struct stat &st) {
  return static_cast<uint64_t>(st.st_blocks) * stat_block;
}

// The kernel's number for an overlay file system. What is removed there stays on the layer that it
// came from.
constexpr uint32_t overlay = 0x794c7630;

// Sums up the space that files and directories take.
class estimate {
 public:
  estimate(uint64_t block, uint64_t directory) : block_(block), directory_(directory) {}

  void add_file(uint64_t size) {
    sum_.bytes += in_blocks(size);
    ++sum_.files;
  }
  void add_directories(uint64_t count) {
    sum_.bytes += count * directory_;
    sum_.files += count;
  }
  void add_links(uint64_t count) { sum_.files += count; }
  // Counts the blocks of a directory beyond the first one. All of them may be only half full.
  void add_names(uint64_t length) {
    const uint64_t bytes = directory_ != 0 ? in_blocks(2 * length) : 0;
    sum_.bytes += bytes > block_ ? bytes - block_ : 0;
  }
  // Adds a reserve, because the files in force are already gone when an estimate turns out too low.
  // Where directories take no space, as in memory, the sum is exact.
  [[nodiscard]] zot::room with_reserve() const {
    if (directory_ == 0) {
      return sum_;
    }
    constexpr uint64_t reserved_blocks = 16;
    constexpr uint64_t reserved_part = 64;
    constexpr uint64_t most_of_it = 16 << 20;
    const uint64_t part = std::min(sum_.bytes / reserved_part, most_of_it);
    return {sum_.bytes + part + reserved_blocks * block_, sum_.files + reserved_blocks};
  }
  [[nodiscard]] const zot::room &sum() const { return sum_; }

 private:
  [[nodiscard]] uint64_t in_blocks(uint64_t size) const {
    return (size + block_ - 1) / block_ * block_;
  }

  uint64_t block_;
  // 0 on file systems where directories take no space.
  uint64_t directory_;
  zot::room sum_;
};

// The length of the leading folders that two paths have in common.
size_t common_folders(const char *path, const char *other) {
  size_t length = 0;
  for (size_t i = 0; path[i] != '\0' && path[i] == other[i]; ++i) {
    length = path[i] == '/' ? i + 1 : length;
  }
  return length;
}

// Adds the files of a list with the folders of their paths. The list is sorted by category and key.
// If its paths sort differently, some folders count twice.
void add_gpbs(estimate &needed, const zot_list *gpbs) {
  // What a directory stores in addition to each name.
  constexpr uint64_t entry_head = 12;
  const char *before = "";
  uint64_t names = 0;
  for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
    const char *const path = gpb.path != nullptr ? gpb.path + std::strspn(gpb.path, "/") : "";
    const char *at = path + common_folders(path, before);
    if (at == path) {
      needed.add_names(names);
      names = 0;
    }
    for (const char *end = std::strchr(at, '/'); end != nullptr; end = std::strchr(at, '/')) {
      needed.add_directories(1);
      names += static_cast<uint64_t>(end - at) + entry_head;
      at = end + 1;
    }
    needed.add_file(gpb.size);
    before = path;
  }
  needed.add_names(names);
}

zot::room free_room(const struct statfs &found) {
  // A file system also reserves blocks for itself, so not even root can count on blocks that other
  // users may not use.
  return {found.f_blocks != 0 ? found.f_bavail * static_cast<uint64_t>(found.f_frsize) : unlimited,
          found.f_files != 0 ? found.f_ffree : unlimited};
}

bool fits(const zot::room &needed, const zot::room &available) {
  return needed.bytes <= available.bytes && needed.files <= available.files;
}

// Whether somebody has the file open: after its removal it would still take its space. The kernel
// grants a write lease only if nobody else has the file open.
bool is_held(int directory, const char *name) {
  const zot::descriptor file(
      ::openat(directory, name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  // If somebody opens the file in the meantime, the kernel sends this signal, which ends no
  // process.
  ::fcntl(file.get(), F_SETSIG, SIGURG);
  return ::fcntl(file.get(), F_SETLEASE, F_WRLCK) != 0 && errno == EAGAIN;
}

void add_taken(int directory, zot::room &sum, int depth) {
  for_each_entry(directory, [&](int fd, const char *name, const struct stat &st) {
    // A file with another link stays when this one is removed.
    if (S_ISDIR(st.st_mode) || (is_plain_file(st) && !is_held(fd, name))) {
      sum.bytes += size_on_medium(st);
      ++sum.files;
    }
    if (S_ISDIR(st.st_mode) && depth < max_depth) {
      if (const zot::descriptor child = open_directory(fd, name); child.is_open()) {
        add_taken(child.get(), sum, depth + 1);
      }
    }
    return true;
  });
}

// The space that the files in force free when they are removed first.
zot::room taken_by_gpbs(int root) {
  zot::room sum;
  if (const zot::descriptor config = open_directory(root, zot::gpb_directory); config.is_open()) {
    add_taken(config.get(), sum, 0);
  }
  return sum;
}

uint64_t add_limited(uint64_t a, uint64_t b) {
  return a == unlimited ? unlimited : a + b;
}

}  // namespace

namespace zot {

room_check look_for_room(const zot_ctx &handle, const zot_k &k, const zot_list *gpbs) {
  const descriptor root = open_root(handle.conf_root);
  struct statfs medium {};
  struct stat directory {};
  if (!root.is_open() || ::fstatfs(root.get(), &medium) != 0 || medium.f_frsize == 0 ||
      ::fstatat(root.get(), "knowledge", &directory, 0) != 0) {
    return {};
  }
  // Some file systems allocate larger units than they count in. A directory takes one such unit.
  const uint64_t folder = size_on_medium(directory);
  estimate needed(std::max(static_cast<uint64_t>(medium.f_frsize), folder), folder);
  needed.add_file(k.data_len);
  needed.add_file(sizeof k.checksum);
  // Counts the GPB directory, and the undo folder with a name for each file that it keeps.
  constexpr unsigned undo_names = 7;
  const unsigned absent = count_absent_files(handle);
  needed.add_directories(2 + absent);
  // An adapter that commits the files itself knows where they go.
  if (handle.fns.commit_gpb == nullptr) {
    add_gpbs(needed, gpbs);
  }
  needed.add_links(undo_names - absent);
  room_check check{room_check::beside, needed.sum(), free_room(medium), {}};
  if (fits(check.needed, check.available)) {
    return check;
  }
  check.needed = needed.with_reserve();
  const bool gives_back =
      handle.fns.commit_gpb == nullptr && static_cast<uint32_t>(medium.f_type) != overlay;
  check.reclaimed = gives_back ? taken_by_gpbs(root.get()) : room{};
  check.available.bytes = add_limited(check.available.bytes, check.reclaimed.bytes);
  check.available.files = add_limited(check.available.files, check.reclaimed.files);
  check.fits = fits(check.needed, check.available) ? room_check::in_place : room_check::none;
  return check;
}

}  // namespace zot
