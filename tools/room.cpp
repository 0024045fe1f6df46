// SPDX-License-Identifier: Apache-2.0
#include "room.hpp"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <set>

#include "zot_conf.h"

namespace zotconf {
namespace {

uint64_t in_blocks(uint64_t size, uint64_t block_size) {
  return (size + block_size - 1) / block_size * block_size;
}

}  // namespace

std::optional<volume> volume_of(const cache_paths &paths) {
  struct statvfs found {};
  struct stat folder {};
  if (::statvfs(paths.conf_root.c_str(), &found) != 0 ||
      ::stat((paths.conf_root / "knowledge").c_str(), &folder) != 0) {
    return std::nullopt;
  }
  const uint64_t block_size = found.f_frsize != 0 ? found.f_frsize : found.f_bsize;
  volume on;
  on.block_size = block_size != 0 ? block_size : 1;
  on.free_bytes = uint64_t{found.f_bavail} * on.block_size;
  // A file system that makes files as it needs them tells none.
  if (found.f_files != 0) {
    on.free_files = found.f_favail;
  }
  on.folders_take_blocks = folder.st_blocks != 0;
  return on;
}

room room_of(const stored_k &k, const volume &on) {
  room needed;
  needed.free_bytes = on.free_bytes;
  needed.free_files = on.free_files;
  std::set<fs::path> folders = {"config"};
  for (const listed_file &file : k.files) {
    needed.needed_bytes += in_blocks(file.size, on.block_size);
    const fs::path key = path_of(file, "").parent_path();
    folders.insert({key, key.parent_path()});
  }
  for (const uint64_t size : {uint64_t{k.bytes.size()}, uint64_t{ZOT_CHECKSUM_LEN}}) {
    needed.needed_bytes += in_blocks(size, on.block_size);
  }
  needed.needed_files = k.files.size() + folders.size() + 2;
  if (on.folders_take_blocks) {
    needed.needed_bytes += folders.size() * on.block_size;
  }
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
