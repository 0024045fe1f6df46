// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/scratch.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#define OPENSSL_API_COMPAT 0x10100000L
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "utilities/owner.hpp"
#include "utilities/path.hpp"
#include "zot_priv/storage/directory_walk.hpp"

namespace {

using namespace zot::directory_walk;

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

bool scratch_watch::drop_changed(const zot_ctx &handle) const {
  const guarded_files now = guard(handle);
  if (now.k != before_.k) {
    ::unlinkat(root_.fd.get(), "subsys.k", 0);
  }
  if (now.checksum != before_.checksum) {
    ::unlinkat(root_.fd.get(), "subsys.checksum", 0);
  }
  return now == before_;
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

// The owner first, as that may cost bits of the mode.
bool scratch_watch::held_directory::restore() const {
  return is_unchanged() ||
         (::fchown(fd.get(), owner, group) == 0 && ::fchmod(fd.get(), mode & 07777) == 0);
}

bool scratch_watch::begin(const zot_ctx &handle) {
  const directory_stream scratch = open_root(handle.tmp_root);
  if (scratch == nullptr || !root_.hold(AT_FDCWD, handle.tmp_root)) {
    return false;
  }
  // One that may not be read is nobody's to change, either.
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
  if (!complete) {
    return false;
  }
  before_ = guard(handle);
  return true;
}

bool scratch_watch::end(const zot_ctx &handle) {
  bool clean = root_.restore();
  if (parent_.fd.is_open() && !parent_.is_unchanged()) {
    clean = false;
    static_cast<void>(parent_.restore());
  }
  const directory_stream scratch = open_root(handle.tmp_root);
  if (scratch == nullptr) {
    return false;
  }
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
  return drop_changed(handle) && complete && clean;
}

}  // namespace zot
