// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/file_id.hpp"

#include <fcntl.h>
#include <sys/stat.h>

namespace zot {

zot_file_id file_id_at(int directory, const char *name) {
  struct stat st {};
  if (::fstatat(directory, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return {};
  }
  return {st.st_dev, st.st_ino, static_cast<uint64_t>(st.st_ctim.tv_sec),
          static_cast<uint64_t>(st.st_ctim.tv_nsec)};
}

bool is_same_file(const zot_file_id &a, const zot_file_id &b) {
  return a.inode == b.inode && a.device == b.device && a.seconds == b.seconds &&
         a.nanoseconds == b.nanoseconds;
}

}  // namespace zot
