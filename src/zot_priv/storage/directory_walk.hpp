// SPDX-License-Identifier: Apache-2.0
// Directories of unknown content: walked and removed without following a link.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "utilities/owner.hpp"

namespace zot::directory_walk {

// A configuration is three levels deep; what nests deeper than this was made to exhaust something.
inline constexpr int max_depth = 64;
// Where the GPB files lie, below the scratch directory.
inline constexpr const char *gpb_directory = "config";

using directory_stream = std::unique_ptr<DIR, zot::releaser<closedir>>;

inline bool is_dot(const char *name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

inline directory_stream open_directory(int parent, const char *name, int extra_flags = O_NOFOLLOW) {
  zot::descriptor fd(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | extra_flags));
  if (!fd.is_open()) {
    return nullptr;
  }
  directory_stream stream(::fdopendir(fd.get()));
  if (stream != nullptr) {
    fd.release();
  }
  return stream;
}

// The scratch directory itself may be reached through a link: where it lies is the host's choice.
inline directory_stream open_root(const char *path) {
  return open_directory(AT_FDCWD, path, 0);
}

// Calls visit(directory descriptor, name, stat) for each entry; a visit that returns false ends it.
template <class Visit>
bool for_each_entry(DIR *directory, Visit visit) {
  const int fd = ::dirfd(directory);
  for (;;) {
    errno = 0;
    const dirent *const entry = ::readdir(directory);
    if (entry == nullptr) {
      return errno == 0;
    }
    if (is_dot(entry->d_name)) {
      continue;
    }
    struct stat st {};
    if (::fstatat(fd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) {
        continue;
      }
      return false;
    }
    if (!visit(fd, entry->d_name, st)) {
      return false;
    }
  }
}

// An archive may bring directories that their owner cannot enter or empty. What stays closed fails
// the step that has to enter it.
inline bool make_accessible(int parent, const char *name, const struct stat &st) {
  return (st.st_mode & S_IRWXU) == S_IRWXU ||
         ::fchmodat(parent, name, (st.st_mode & 0777) | S_IRWXU, 0) == 0;
}

// Moves a directory to a free name in another one.
inline bool pull_up(int parent, const char *name, const struct stat &st, int top,
                    unsigned &serial) {
  make_accessible(parent, name, st);
  for (;;) {
    char free_name[16];
    static_cast<void>(std::snprintf(free_name, sizeof free_name, "%u", serial++));
    if (::renameat(parent, name, top, free_name) == 0) {
      return true;
    }
    if (errno != ENOTEMPTY && errno != EEXIST && errno != ENOTDIR) {
      return false;
    }
  }
}

inline bool flatten(int top, const char *name, const struct stat &st, unsigned &serial) {
  make_accessible(top, name, st);
  const directory_stream directory = open_directory(top, name);
  return directory != nullptr && for_each_entry(directory.get(), [&](int fd, const char *child,
                                                                     const struct stat &child_st) {
           return S_ISDIR(child_st.st_mode) ? pull_up(fd, child, child_st, top, serial)
                                            : ::unlinkat(fd, child, 0) == 0;
         });
}

// Removes an entry with all below it, links not followed. What lies deeper is pulled up to the top
// and emptied there: a tree nested to exhaust something costs neither stack nor descriptors.
inline bool remove_entry(int parent, const char *name, const struct stat &st) {
  if (!S_ISDIR(st.st_mode)) {
    return ::unlinkat(parent, name, 0) == 0;
  }
  make_accessible(parent, name, st);
  const directory_stream directory = open_directory(parent, name);
  if (directory == nullptr) {
    return false;
  }
  unsigned serial = 0;
  for (bool is_empty = false; !is_empty;) {
    is_empty = true;
    ::rewinddir(directory.get());
    const bool complete = for_each_entry(
        directory.get(), [&](int fd, const char *child, const struct stat &child_st) {
          is_empty = false;
          if (!S_ISDIR(child_st.st_mode)) {
            return ::unlinkat(fd, child, 0) == 0;
          }
          return flatten(fd, child, child_st, serial) && ::unlinkat(fd, child, AT_REMOVEDIR) == 0;
        });
    if (!complete) {
      return false;
    }
  }
  return ::unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

inline bool is_plain_file(const struct stat &st) {
  return S_ISREG(st.st_mode) && st.st_nlink == 1;
}

}  // namespace zot::directory_walk
