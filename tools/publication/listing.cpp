// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/listing.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>

#include "utilities/owner.hpp"

namespace zotconf {
namespace {

// A symbolic link that replaces a file has a different stamp, because links are not followed.
file_stamp stamp_of(int folder, const std::string &path) {
  struct stat info {};
  if (::fstatat(folder, path.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    return {};
  }
  return {static_cast<int64_t>(info.st_dev), static_cast<int64_t>(info.st_ino),
          static_cast<int64_t>(info.st_size), info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

void list_subsys(const fs::path &folder, std::vector<k_listing> &into) {
  const zot::descriptor open(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::error_code no_folder;
  for (const auto &entry : fs::directory_iterator(folder, no_folder)) {
    const std::string index = entry.path().filename().string();
    const std::string path = (fs::path(index) / "latest" / index).string();
    const file_stamp k = stamp_of(open.get(), path + ".k");
    if (k != file_stamp{}) {
      into.push_back({.who = {.subsys = folder.filename().string(), .index = index},
                      .k = k,
                      .checksum = stamp_of(open.get(), path + ".checksum")});
    }
  }
}

}  // namespace

std::vector<k_listing> list_k_files(const fs::path &publication) {
  // Fails if the folder cannot be opened; otherwise it would look like an empty publication.
  const fs::directory_iterator must_open(publication);
  std::vector<k_listing> found;
  std::error_code absent;
  for (const auto &subsys : fs::directory_iterator(publication / "file" / "knowledge", absent)) {
    list_subsys(subsys.path(), found);
  }
  std::ranges::sort(found, {},
                    [](const k_listing &one) { return std::tie(one.who.subsys, one.who.index); });
  return found;
}

}  // namespace zotconf
