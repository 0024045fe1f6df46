// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/scratch.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#define OPENSSL_API_COMPAT 0x10100000L
#include <openssl/sha.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_list.hpp"

namespace {

using directory_stream = std::unique_ptr<DIR, zot::releaser<closedir>>;

// A configuration is three levels deep; what nests deeper than this was made to exhaust something.
constexpr int max_depth = 64;
constexpr const char *gpb_directory = "config";

bool is_dot(const char *name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

directory_stream open_directory(int parent, const char *name, int extra_flags = O_NOFOLLOW) {
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
directory_stream open_root(const char *path) {
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
bool make_accessible(int parent, const char *name, const struct stat &st) {
  return (st.st_mode & S_IRWXU) == S_IRWXU ||
         ::fchmodat(parent, name, (st.st_mode & 0777) | S_IRWXU, 0) == 0;
}

// Moves a directory to a free name in another one.
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
  const directory_stream directory = open_directory(top, name);
  return directory != nullptr && for_each_entry(directory.get(), [&](int fd, const char *child,
                                                                     const struct stat &child_st) {
           return S_ISDIR(child_st.st_mode) ? pull_up(fd, child, child_st, top, serial)
                                            : ::unlinkat(fd, child, 0) == 0;
         });
}

// Removes an entry with all below it, links not followed. What lies deeper is pulled up to the top
// and emptied there: a tree nested to exhaust something costs neither stack nor descriptors.
bool remove_entry(int parent, const char *name, const struct stat &st) {
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

bool is_plain_file(const struct stat &st) {
  return S_ISREG(st.st_mode) && st.st_nlink == 1;
}

bool has_foreign_identity(const struct stat &st) {
  return S_ISREG(st.st_mode) && (st.st_mode & (S_ISUID | S_ISGID)) != 0;
}

// What of a mode is remembered: that of a directory changes with what is done to open it.
mode_t kept_mode(mode_t mode) {
  return S_ISDIR(mode) ? S_IFDIR : mode;
}

struct sweep_result {
  bool complete;
  bool found_foreign;
};

// Removes everything below a directory that is neither a directory nor a plain file, and the
// set-user-ID bits of those.
sweep_result sweep(DIR *directory, int depth) {
  sweep_result result{true, false};
  result.complete = for_each_entry(directory, [&](int fd, const char *name, const struct stat &st) {
    if (S_ISDIR(st.st_mode) && depth < max_depth) {
      make_accessible(fd, name, st);
      const directory_stream child = open_directory(fd, name);
      if (child == nullptr) {
        return false;
      }
      const sweep_result below = sweep(child.get(), depth + 1);
      result.found_foreign = result.found_foreign || below.found_foreign;
      return below.complete;
    }
    if (is_plain_file(st) && !has_foreign_identity(st)) {
      return true;
    }
    result.found_foreign = true;
    if (is_plain_file(st)) {
      return ::fchmodat(fd, name, st.st_mode & 0777, 0) == 0;
    }
    return remove_entry(fd, name, st);
  });
  return result;
}

sweep_result sweep_directory(int scratch, const char *name) {
  const directory_stream directory = open_directory(scratch, name);
  return directory != nullptr ? sweep(directory.get(), 0) : sweep_result{false, true};
}

// The inode numbers of the files that a list names: whatever form a path has, the file that it
// reaches is told by its number.
class listed_files {
 public:
  bool collect(const zot_ctx &handle, const zot_list *gpbs) {
    for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
      static_cast<void>(gpb);
      ++capacity_;
    }
    if (capacity_ == 0) {
      return true;
    }
    inodes_.reset(static_cast<ino_t *>(std::calloc(capacity_, sizeof(ino_t))));
    if (inodes_ == nullptr) {
      return false;
    }
    for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
      const zot::joined_path file(handle.tmp_gpb_root, gpb.path);
      struct stat st {};
      if (::stat(file.c_str(), &st) != 0) {
        return false;
      }
      inodes_.get()[count_++] = st.st_ino;
    }
    std::sort(inodes_.get(), inodes_.get() + count_);
    return true;
  }

  [[nodiscard]] bool holds(ino_t inode) const {
    return std::binary_search(inodes_.get(), inodes_.get() + count_, inode);
  }

 private:
  zot::c_ptr<ino_t> inodes_;
  size_t capacity_ = 0;
  size_t count_ = 0;
};

void prune(DIR *directory, const listed_files &listed, int depth) {
  for_each_entry(directory, [&](int fd, const char *name, const struct stat &st) {
    if (S_ISDIR(st.st_mode) && depth < max_depth) {
      if (const directory_stream child = open_directory(fd, name); child != nullptr) {
        prune(child.get(), listed, depth + 1);
      }
      // Only a directory that became empty goes.
      ::unlinkat(fd, name, AT_REMOVEDIR);
    } else if (S_ISREG(st.st_mode) && !listed.holds(st.st_ino)) {
      ::unlinkat(fd, name, 0);
    }
    return true;
  });
}

}  // namespace

namespace zot {

scratch_watch::~scratch_watch() {
  std::free(names_);
}

scratch_watch::file_digest scratch_watch::digest_of(const char *root, const char *name) {
  file_digest digest{};
  const joined_path path(root, name);
  const descriptor fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd.is_open()) {
    return digest;
  }
  SHA256_CTX context;
  char chunk[ZOT_PATH_SIZE];
  if (SHA256_Init(&context) != 1) {
    return digest;
  }
  for (;;) {
    const ssize_t got = ::read(fd.get(), chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      break;
    }
    SHA256_Update(&context, chunk, static_cast<size_t>(got));
  }
  SHA256_Final(digest.sha256.data(), &context);
  digest.exists = true;
  return digest;
}

scratch_watch::guarded_files scratch_watch::guard(const zot_ctx &handle) {
  return {digest_of(handle.tmp_root, "subsys.k"), digest_of(handle.tmp_root, "subsys.checksum")};
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

bool scratch_watch::begin(const zot_ctx &handle) {
  const directory_stream scratch = open_root(handle.tmp_root);
  if (scratch == nullptr) {
    return false;
  }
  const bool complete =
      for_each_entry(scratch.get(), [this](int fd, const char *name, const struct stat &st) {
        if (S_ISDIR(st.st_mode)) {
          make_accessible(fd, name, st);
          return remember(name, st.st_mode) && sweep_directory(fd, name).complete;
        }
        return is_plain_file(st) && !has_foreign_identity(st) ? remember(name, st.st_mode)
                                                              : remove_entry(fd, name, st);
      });
  before_ = guard(handle);
  return complete;
}

bool scratch_watch::end(const zot_ctx &handle) {
  const directory_stream scratch = open_root(handle.tmp_root);
  if (scratch == nullptr) {
    return false;
  }
  bool clean = true;
  const bool complete = for_each_entry(scratch.get(), [&](int fd, const char *name,
                                                          const struct stat &st) {
    if (S_ISDIR(st.st_mode) && (std::strcmp(name, gpb_directory) == 0 || knows(name, st.st_mode))) {
      make_accessible(fd, name, st);
      const sweep_result swept = sweep_directory(fd, name);
      clean = clean && !swept.found_foreign;
      return swept.complete;
    }
    if (is_plain_file(st) && !has_foreign_identity(st) && knows(name, st.st_mode)) {
      return true;
    }
    clean = false;
    return remove_entry(fd, name, st);
  });
  return complete && clean && guard(handle) == before_;
}

void remove_unlisted_files(const zot_ctx &handle, const zot_list *gpbs) {
  listed_files listed;
  if (!listed.collect(handle, gpbs)) {
    return;
  }
  if (const directory_stream directory = open_root(handle.tmp_gpb_root); directory != nullptr) {
    prune(directory.get(), listed, 0);
  }
}

}  // namespace zot
