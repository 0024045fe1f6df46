// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/gpb_folder.hpp"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "utilities/path.hpp"
#include "zot_priv/storage/directory_walk.hpp"

namespace zot {

gpb_folder::gpb_folder(const char *root) : root_(root), root_length_(std::strlen(root)) {}

bool gpb_folder::fits_in_path(const char *path) const {
  // told_name in gpb_verify.cpp joins the same parts.
  constexpr size_t between = sizeof "//config/" - 1;
  return root_length_ + between + std::strlen(path) < ZOT_PATH_SIZE;
}

// A folder that may be entered but not read cannot be opened; its files can.
descriptor gpb_folder::open(const char *path) {
  // Without O_NONBLOCK, the open of a FIFO would wait for a writer.
  constexpr int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
  if (!is_opened_) {
    is_opened_ = true;
    fd_ = directory_walk::open_root(joined_path(root_, "/config").c_str());
  }
  const char *const below = path + std::strspn(path, "/");
  if (fd_.is_open()) {
    descriptor file(::openat(fd_.get(), below, flags));
    if (file.is_open() || (errno != EMFILE && errno != ENFILE)) {
      return file;
    }
    // The folder may hold the last available descriptor.
    fd_.close();
  }
  char whole[ZOT_PATH_SIZE];
  static_cast<void>(std::snprintf(whole, sizeof whole, "%s/config/%s", root_, below));
  return descriptor(::open(whole, flags));
}

}  // namespace zot
