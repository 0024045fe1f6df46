// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/scratch.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "utilities/file_io.hpp"
#include "utilities/owner.hpp"
#include "zot_priv/storage/directory_walk.hpp"
#include "zot_priv/storage/names.hpp"

namespace {

using namespace zot::directory_walk;

bool has_foreign_identity(const struct stat &st) {
  return S_ISREG(st.st_mode) && (st.st_mode & (S_ISUID | S_ISGID)) != 0;
}

// The part of a mode that is remembered. Opening up a directory changes its permissions, so only
// its type counts.
mode_t kept_mode(mode_t mode) {
  return S_ISDIR(mode) ? S_IFDIR : mode;
}

struct sweep_result {
  bool complete = true;
  bool found_foreign = false;
  zot::gpb_directory_census found;
};

void add_below(sweep_result &result, const sweep_result &below) {
  result.found_foreign = result.found_foreign || below.found_foreign;
  result.found.files += below.found.files;
  result.found.has_empty_directory =
      result.found.has_empty_directory || below.found.has_empty_directory;
}

// Removes everything below a directory that is neither a directory nor a plain file, and clears the
// set-user-ID and set-group-ID bits of plain files.
sweep_result sweep(int directory, int depth) {
  sweep_result result;
  bool is_empty = true;
  result.complete = for_each_entry(directory, [&](int fd, const char *name, const struct stat &st) {
    is_empty = false;
    if (S_ISDIR(st.st_mode) && depth < max_depth) {
      make_accessible(fd, name, st);
      const zot::descriptor child = open_directory(fd, name);
      if (!child.is_open()) {
        return false;
      }
      const sweep_result below = sweep(child.get(), depth + 1);
      add_below(result, below);
      return below.complete;
    }
    if (is_plain_file(st) && !has_foreign_identity(st)) {
      ++result.found.files;
      return true;
    }
    result.found_foreign = true;
    if (is_plain_file(st)) {
      return ::fchmodat(fd, name, st.st_mode & 0777, 0) == 0;
    }
    return remove_entry(fd, name, st);
  });
  result.found.has_empty_directory = result.found.has_empty_directory || is_empty;
  return result;
}

// Opens an existing regular file without following a link and without blocking.
zot::descriptor open_plain(int directory, const char *name, struct stat *st) {
  zot::descriptor fd(::openat(directory, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (fd.is_open() && (::fstat(fd.get(), st) != 0 || !S_ISREG(st->st_mode))) {
    fd.close();
    errno = EISDIR;
  }
  return fd;
}

sweep_result sweep_directory(int scratch, const char *name) {
  const zot::descriptor directory = open_directory(scratch, name);
  return directory.is_open() ? sweep(directory.get(), 0) : sweep_result{false, true, {}};
}

}  // namespace

namespace zot {

scratch_watch::~scratch_watch() {
  std::free(names_);
}

bool scratch_watch::guarded_file::hold(int directory) {
  struct stat st {};
  const descriptor fd = open_plain(directory, name_, &st);
  if (!fd.is_open()) {
    return errno == ENOENT;
  }
  size_ = static_cast<size_t>(st.st_size);
  bytes_.reset(static_cast<char *>(std::malloc(size_ + 1)));
  return bytes_ != nullptr && read_exactly(fd.get(), bytes_.get(), size_);
}

bool scratch_watch::guarded_file::is_unchanged(int directory) const {
  struct stat st {};
  const descriptor fd = open_plain(directory, name_, &st);
  if (!fd.is_open() || bytes_ == nullptr) {
    return !fd.is_open() && bytes_ == nullptr;
  }
  return holds_exactly(fd.get(), bytes_.get(), size_);
}

void scratch_watch::guarded_file::remove(int directory) const {
  ::unlinkat(directory, name_, 0);
}

bool scratch_watch::drop_changed() const {
  bool is_unchanged = true;
  for (const guarded_file *const file : {&k_, &checksum_}) {
    if (!file->is_unchanged(root_.fd.get())) {
      file->remove(root_.fd.get());
      is_unchanged = false;
    }
  }
  return is_unchanged;
}

bool scratch_watch::knows(const char *name, mode_t mode) const {
  mode_t known = 0;
  for (size_t at = 0; at < names_size_;) {
    std::memcpy(&known, names_ + at, sizeof known);
    at += sizeof known;
    if (known == kept_mode(mode) && std::strcmp(names_ + at, name) == 0) {
      return true;
    }
    at += std::strlen(names_ + at) + 1;
  }
  return false;
}

bool scratch_watch::remember(const char *name, mode_t mode) {
  const mode_t kept = kept_mode(mode);
  const size_t size = std::strlen(name) + 1;
  char *const grown = static_cast<char *>(std::realloc(names_, names_size_ + sizeof kept + size));
  if (grown == nullptr) {
    return false;
  }
  std::memcpy(grown + names_size_, &kept, sizeof kept);
  std::memcpy(grown + names_size_ + sizeof kept, name, size);
  names_ = grown;
  names_size_ += sizeof kept + size;
  return true;
}

bool scratch_watch::held_directory::hold(int parent, const char *path) {
  fd = descriptor(::openat(parent, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat before {};
  if (!fd.is_open() || ::fstat(fd.get(), &before) != 0) {
    return false;
  }
  mode = before.st_mode;
  owner = before.st_uid;
  group = before.st_gid;
  return true;
}

bool scratch_watch::held_directory::is_unchanged() const {
  struct stat now {};
  return ::fstat(fd.get(), &now) == 0 && now.st_mode == mode && now.st_uid == owner &&
         now.st_gid == group;
}

// Restores the owner first, because that may clear bits of the mode.
bool scratch_watch::held_directory::restore() const {
  return is_unchanged() ||
         (::fchown(fd.get(), owner, group) == 0 && ::fchmod(fd.get(), mode & 07777) == 0);
}

bool scratch_watch::begin(const zot_ctx &handle) {
  const descriptor scratch = open_root(handle.tmp_root);
  if (!scratch.is_open() || !root_.hold(AT_FDCWD, handle.tmp_root)) {
    return false;
  }
  // The archive cannot change a parent that cannot be opened.
  parent_.hold(root_.fd.get(), "..");
  const bool complete =
      for_each_entry(scratch.get(), [this](int fd, const char *name, const struct stat &st) {
        if (S_ISDIR(st.st_mode)) {
          make_accessible(fd, name, st);
          return remember(name, st.st_mode) && sweep_directory(fd, name).complete;
        }
        return is_plain_file(st) && !has_foreign_identity(st) ? remember(name, st.st_mode)
                                                              : remove_entry(fd, name, st);
      });
  return complete && k_.hold(root_.fd.get()) && checksum_.hold(root_.fd.get());
}

bool scratch_watch::end(const zot_ctx &handle) {
  bool clean = root_.restore();
  if (parent_.fd.is_open() && !parent_.is_unchanged()) {
    clean = false;
    static_cast<void>(parent_.restore());
  }
  const descriptor scratch = open_root(handle.tmp_root);
  if (!scratch.is_open()) {
    return false;
  }
  // An entry that cannot be swept does not stop the walk: the entries after it are still checked.
  bool is_swept = true;
  const bool complete = for_each_entry(scratch.get(), [&](int fd, const char *name,
                                                          const struct stat &st) {
    if (S_ISDIR(st.st_mode) && (std::strcmp(name, gpb_directory) == 0 || knows(name, st.st_mode))) {
      make_accessible(fd, name, st);
      const sweep_result swept = sweep_directory(fd, name);
      clean = clean && !swept.found_foreign;
      if (std::strcmp(name, gpb_directory) == 0) {
        found_ = swept.found;
      }
      is_swept = is_swept && swept.complete;
      return true;
    }
    if (is_plain_file(st) && !has_foreign_identity(st) && knows(name, st.st_mode)) {
      return true;
    }
    clean = false;
    is_swept = remove_entry(fd, name, st) && is_swept;
    return true;
  });
  return drop_changed() && complete && is_swept && clean;
}

}  // namespace zot
