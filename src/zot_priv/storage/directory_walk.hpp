// SPDX-License-Identifier: Apache-2.0
// Directories of unknown content: walked and removed without following a link.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>

#include "utilities/owner.hpp"

namespace zot::directory_walk {

// A configuration is three levels deep; what nests deeper than this was made to exhaust something.
inline constexpr int max_depth = 64;

// No link is followed to it.
descriptor open_directory(int parent, const char *name);

// A directory of the host's choice, which may be reached through a link.
descriptor open_root(const char *path);

// The names in a directory, as the kernel hands them out. A stream of the C library takes 32 KiB of
// memory and three calls more for each directory, and most directories here hold one file.
class directory_names {
 public:
  explicit directory_names(int directory) : directory_(directory) {}
  directory_names(const directory_names &) = delete;
  directory_names &operator=(const directory_names &) = delete;

  // The next name but "." and "..", good until the next call; null at the end, and with
  // `has_failed` when the directory could not be read to it.
  const char *next();
  [[nodiscard]] bool has_failed() const { return left_ < 0; }

 private:
  // A walk has one of these on the stack for each level that it is deep. A name takes 280 at most.
  static constexpr std::size_t buffer_size = 512;

  int directory_;
  long left_ = 0;  // bytes that are not handed out yet
  const char *at_ = nullptr;
  alignas(8) char buffer_[buffer_size];
};

// Calls visit(context, directory descriptor, name, stat) for each entry; a visit that returns false
// ends it.
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

// An archive may bring directories that their owner cannot enter or empty. What stays closed fails
// the step that has to enter it.
bool make_accessible(int parent, const char *name, const struct stat &st);

// Removes an entry with all below it, links not followed. What lies deeper is pulled up to the top
// and emptied there: a tree nested to exhaust something costs neither stack nor descriptors.
bool remove_entry(int parent, const char *name, const struct stat &st);

inline bool is_plain_file(const struct stat &st) {
  return S_ISREG(st.st_mode) && st.st_nlink == 1;
}

}  // namespace zot::directory_walk
