// SPDX-License-Identifier: Apache-2.0
// Walks and removes directories of unknown content without following links.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>

#include "utilities/owner.hpp"

namespace zot::directory_walk {

// A configuration is three levels deep. Deeper nesting than this is meant to exhaust resources.
inline constexpr int max_depth = 64;

// Does not follow a link.
descriptor open_directory(int parent, const char *name);

// Opens a directory of the host's choice, which may be reached through a link.
descriptor open_root(const char *path);

// The names in a directory, read directly from the kernel. A directory stream of the C library
// takes 32 KiB of memory and three more calls per directory, and most directories here hold one
// file.
class directory_names {
 public:
  explicit directory_names(int directory) : directory_(directory) {}
  directory_names(const directory_names &) = delete;
  directory_names &operator=(const directory_names &) = delete;

  // The next name except "." and "..", valid until the next call. Null at the end, and after a read
  // error, when has_failed() is true.
  const char *next();
  [[nodiscard]] bool has_failed() const { return left_ < 0; }

 private:
  // A walk keeps one of these buffers on the stack per level. A name takes 280 bytes at most.
  static constexpr std::size_t buffer_size = 512;

  int directory_;
  long left_ = 0;  // bytes not yet handed out
  const char *at_ = nullptr;
  alignas(8) char buffer_[buffer_size];
};

// Calls visit(context, directory descriptor, name, stat) for each entry. A visit that returns false
// ends the walk.
bool visit_entries(int directory,
                   bool (*visit)(void *context, int directory, const char *name,
                                 const struct stat &st),
                   void *context);

// The same with visit(directory descriptor, name, stat).
template <class Visit>
bool for_each_entry(int directory, Visit visit) {
  return visit_entries(
      directory,
      [](void *context, int fd, const char *name, const struct stat &st) {
        return (*static_cast<Visit *>(context))(fd, name, st);
      },
      &visit);
}

// Gives the owner access to a directory: an archive may contain directories that their owner cannot
// enter or empty. If this fails, the step that has to enter the directory fails.
bool make_accessible(int parent, const char *name, const struct stat &st);

// Removes an entry and everything below it, without following links. Deeper directories are moved
// to the top and emptied there, so that a deeply nested tree exhausts neither stack nor
// descriptors.
bool remove_entry(int parent, const char *name, const struct stat &st);

inline bool is_plain_file(const struct stat &st) {
  return S_ISREG(st.st_mode) && st.st_nlink == 1;
}

}  // namespace zot::directory_walk
