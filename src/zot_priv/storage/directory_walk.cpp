// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/directory_walk.hpp"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zot::directory_walk {

namespace {

// The kernel's layout of a directory entry. The name follows, null-terminated.
struct kernel_entry {
  uint64_t inode;
  int64_t next;
  uint16_t length;
  uint8_t type;
};
constexpr std::size_t name_offset = offsetof(kernel_entry, type) + 1;

bool is_dot(const char *name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Moves a directory into another one, under a free name.
bool pull_up(int parent, const char *name, const struct stat &st, int top, unsigned &serial) {
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

bool flatten(int top, const char *name, const struct stat &st, unsigned &serial) {
  make_accessible(top, name, st);
  const descriptor directory = open_directory(top, name);
  return directory.is_open() && for_each_entry(directory.get(), [&](int fd, const char *child,
                                                                    const struct stat &child_st) {
           return S_ISDIR(child_st.st_mode) ? pull_up(fd, child, child_st, top, serial)
                                            : ::unlinkat(fd, child, 0) == 0;
         });
}

}  // namespace

bool visit_entries(int directory,
                   bool (*visit)(void *context, int directory, const char *name,
                                 const struct stat &st),
                   void *context) {
  directory_names names(directory);
  while (const char *const name = names.next()) {
    struct stat st {};
    if (::fstatat(directory, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) {
        continue;
      }
      return false;
    }
    if (!visit(context, directory, name, st)) {
      return false;
    }
  }
  return !names.has_failed();
}

descriptor open_directory(int parent, const char *name) {
  return descriptor(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
}

descriptor open_root(const char *path) {
  return descriptor(::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

const char *directory_names::next() {
  for (;;) {
    if (left_ <= 0) {
      left_ = ::syscall(SYS_getdents64, directory_, buffer_, sizeof buffer_);
      if (left_ <= 0) {
        // A directory that was removed in the meantime has no more entries.
        left_ = left_ < 0 && errno == ENOENT ? 0 : left_;
        return nullptr;
      }
      at_ = buffer_;
    }
    uint16_t length = 0;
    std::memcpy(&length, at_ + offsetof(kernel_entry, length), sizeof length);
    const char *const name = at_ + name_offset;
    at_ += length;
    left_ -= length;
    if (!is_dot(name)) {
      return name;
    }
  }
}

bool make_accessible(int parent, const char *name, const struct stat &st) {
  return (st.st_mode & S_IRWXU) == S_IRWXU ||
         ::fchmodat(parent, name, (st.st_mode & 0777) | S_IRWXU, 0) == 0;
}

bool remove_entry(int parent, const char *name, const struct stat &st) {
  if (!S_ISDIR(st.st_mode)) {
    return ::unlinkat(parent, name, 0) == 0;
  }
  make_accessible(parent, name, st);
  const descriptor directory = open_directory(parent, name);
  if (!directory.is_open()) {
    return false;
  }
  unsigned serial = 0;
  for (bool is_empty = false; !is_empty;) {
    is_empty = true;
    ::lseek(directory.get(), 0, SEEK_SET);
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

}  // namespace zot::directory_walk
