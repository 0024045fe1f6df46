// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/room.hpp"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>

#include "tools/files/file_io.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

// The unit of st_blocks, on every file system.
constexpr uint64_t stat_block = 512;
// The undo folder, and in it one name for each of the six K files and one for the folder of the GPB
// files.
constexpr uint64_t undo_folders = 1;
constexpr uint64_t undo_names = 7;

uint64_t in_blocks(uint64_t size, uint64_t block_size) {
  return (size + block_size - 1) / block_size * block_size;
}

// The directory blocks that names need beyond the first block of each folder. A directory may be
// only half full, so the length of the names counts twice.
uint64_t names_in_folders(const std::set<fs::path> &folders, const volume &on) {
  // What a directory stores with each name.
  constexpr uint64_t entry_head = 12;
  std::map<fs::path, uint64_t> names;
  for (const fs::path &folder : folders) {
    names[folder.parent_path()] += folder.filename().string().size() + entry_head;
  }
  uint64_t sum = 0;
  for (const auto &[folder, length] : names) {
    const uint64_t bytes = in_blocks(2 * length, on.block_size);
    sum += on.folder_size != 0 && bytes > on.block_size ? bytes - on.block_size : 0;
  }
  return sum;
}

}  // namespace

std::optional<volume> volume_of(const cache_paths &paths) {
  struct statvfs found {};
  struct stat folder {};
  if (::statvfs(paths.conf_root.c_str(), &found) != 0 || found.f_frsize == 0 ||
      ::stat((paths.conf_root / "knowledge").c_str(), &folder) != 0) {
    return std::nullopt;
  }
  volume on;
  on.folder_size = static_cast<uint64_t>(folder.st_blocks) * stat_block;
  // Some file systems allocate larger units than f_frsize.
  on.block_size = std::max(uint64_t{found.f_frsize}, on.folder_size);
  for (const char *const name : {"subsys.k", "subsys.checksum", "prev_subsys.k",
                                 "prev_subsys.checksum", "corrupted.k", "corrupted.checksum"}) {
    on.absent_k_files += is_there(paths.conf_root / "knowledge" / name) ? 0 : 1;
  }
  // A file system without a fixed size reports 0 here.
  if (found.f_blocks != 0) {
    on.free_bytes = uint64_t{found.f_bavail} * found.f_frsize;
  }
  if (found.f_files != 0) {
    on.free_files = found.f_favail;
  }
  return on;
}

room room_of(const stored_k &k, const volume &on) {
  room needed;
  needed.free_bytes = on.free_bytes;
  needed.free_files = on.free_files;
  std::set<fs::path> folders = {"config"};
  for (const uint64_t size : {uint64_t{k.bytes.size()}, uint64_t{ZOT_CHECKSUM_LEN + 1}}) {
    needed.needed_bytes += in_blocks(size, on.block_size);
  }
  for (const listed_file &file : k.files) {
    needed.needed_bytes += in_blocks(file.size, on.block_size);
    const fs::path path = fs::path(file.path).relative_path();
    for (fs::path at = path.parent_path(); !at.empty(); at = at.parent_path()) {
      folders.insert(at);
    }
  }
  // The undo folder marks an absent K file by an empty folder.
  needed.needed_bytes += (folders.size() + undo_folders + on.absent_k_files) * on.folder_size;
  needed.needed_bytes += names_in_folders(folders, on);
  needed.needed_files = k.files.size() + 2 + folders.size() + undo_folders + undo_names;
  return needed;
}

void set_room(json_node into, const std::optional<room> &told) {
  if (!told) {
    into.set("room", std::optional<std::string>());
    return;
  }
  into.object("room")
      .set("needed_bytes", told->needed_bytes)
      .set("free_bytes", told->free_bytes)
      .set("needed_files", told->needed_files)
      .set("free_files", told->free_files)
      .set("fits_beside", told->fits_beside());
}

}  // namespace zotconf
