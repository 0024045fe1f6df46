// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/cache_owner.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include "tools/files/file_io.hpp"

namespace zotconf {

cache_owner::cache_owner(const fs::path &conf_root) : user_(::geteuid()), group_(::getegid()) {
  struct stat found {};
  if (::stat(conf_root.c_str(), &found) == 0) {
    user_ = found.st_uid;
    group_ = found.st_gid;
  }
}

void cache_owner::take(const fs::path &made) const {
  struct stat found {};
  // On a file system without owners every file has the same owner, so nothing has to change.
  if (::geteuid() != 0 || ::lstat(made.c_str(), &found) != 0 ||
      (found.st_uid == user_ && found.st_gid == group_)) {
    return;
  }
  if (::lchown(made.c_str(), user_, group_) != 0) {
    throw_errno("cannot make the owner of the cache the owner of " + made.string());
  }
}

std::vector<fs::path> missing_of_start(const cache_paths &paths) {
  const fs::path knowledge = paths.conf_root / "knowledge";
  std::vector<fs::path> missing;
  for (const fs::path &path :
       {knowledge, paths.tmp_root / "config", paths.tmp_root, paths.tmp_root.parent_path(),
        knowledge / "subsys.k", knowledge / "subsys.checksum", knowledge / "prev_subsys.k",
        knowledge / "prev_subsys.checksum", knowledge / "corrupted.k",
        knowledge / "corrupted.checksum"}) {
    if (!is_there(path)) {
      missing.push_back(path);
    }
  }
  return missing;
}

}  // namespace zotconf
