// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/cache_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "utilities/command.hpp"
#include "utilities/owner.hpp"
#include "zot_err.hpp"
#include "zot_log.hpp"
#include "zot_priv/storage/directory_walk.hpp"

namespace {

using zot::directory_walk::open_root;

constexpr int64_t nanoseconds_in_second = 1000000000;
constexpr long shortest_pause = 1000000;
constexpr long longest_pause = 32000000;

// The time of a clock that nobody can set.
int64_t now() {
  timespec at{};
  ::clock_gettime(CLOCK_MONOTONIC, &at);
  return int64_t{at.tv_sec} * nanoseconds_in_second + at.tv_nsec;
}

enum class outcome { locked, busy, failed };

// A file system may have no locks at all. Then only one process at a time may use the cache.
outcome try_lock(int fd) {
  int result = 0;
  do {
    result = ::flock(fd, LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result == 0 || errno == ENOSYS || errno == EOPNOTSUPP) {
    return outcome::locked;
  }
  return errno == EWOULDBLOCK ? outcome::busy : outcome::failed;
}

bool is_same(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Returns 0 if there is no time limit.
int64_t deadline_of(const zot_ctx &handle) {
  const uint32_t seconds = handle.parm != nullptr ? handle.parm->all.timeout : 0;
  return seconds != 0 ? now() + int64_t{seconds} * nanoseconds_in_second : 0;
}

int record_lock_failure(zot_ctx &handle, const char *path, const char *func) {
  return ZOT_RECORD_AT(&handle, ZOT_ERR_GENERIC, func, __LINE__, "[%s]: fail to lock %s: %s", func,
                       path, std::strerror(errno));
}

int lock_within(zot_ctx &handle, int fd, const char *path, int64_t deadline, const char *func) {
  outcome tried = try_lock(fd);
  for (long pause = shortest_pause; tried == outcome::busy;
       pause = std::min(2 * pause, longest_pause), tried = try_lock(fd)) {
    if (deadline != 0 && now() >= deadline) {
      return ZOT_RECORD_AT(&handle, ZOT_ERR_TIMEOUT, func, __LINE__,
                           "[%s]: %s is locked by another process", func, path);
    }
    const timespec interval{0, pause};
    ::nanosleep(&interval, nullptr);
  }
  return tried == outcome::locked ? ZOT_OK : record_lock_failure(handle, path, func);
}

int descriptor_of(const zot_ctx &handle, size_t folder) {
  return handle.own.lock_fd[folder] - 1;
}

bool is_at(const char *path, int fd) {
  struct stat found {};
  struct stat held {};
  return ::stat(path, &found) == 0 && ::fstat(fd, &held) == 0 && is_same(found, held);
}

// Locks the directory at the path. If it was removed and recreated during the wait, locks the new
// one.
int lock_folder(zot_ctx &handle, size_t folder, int64_t deadline, const char *func) {
  const char *const path = folder == 0 ? handle.conf_root : handle.tmp_root;
  zot::descriptor fd(-1);
  do {
    fd = open_root(path);
    if (!fd.is_open() && (errno == EACCES || errno == ENOENT)) {
      // Operations that need the directory fail by themselves.
      return ZOT_OK;
    }
    if (!fd.is_open()) {
      return record_lock_failure(handle, path, func);
    }
    if (folder != 0 && is_at(handle.conf_root, fd.get())) {
      return ZOT_RECORD_AT(&handle, ZOT_ERR_WRONG_INPUT, func, __LINE__,
                           "[%s]: conf root and tmp root are the same: %s", func, path);
    }
    if (const int status = lock_within(handle, fd.get(), path, deadline, func); status != ZOT_OK) {
      return status;
    }
    errno = 0;
    // If that cannot be checked, later operations on the directory fail or notice it.
  } while (!is_at(path, fd.get()) && (errno == 0 || errno == ENOENT));
  handle.own.lock_fd[folder] = fd.release() + 1;
  return ZOT_OK;
}

}  // namespace

namespace zot {

cache_lock::cache_lock(zot_ctx &handle)
    : handle_(handle), out_of_sight_before_(count_commands_out_of_sight()) {}

cache_lock::~cache_lock() {
  if (!is_held_ || --handle_.own.lock_depth != 0) {
    return;
  }
  const errno_keeper keep_errno;
  // Unlocks explicitly: a child that another thread has forked in the meantime has the descriptors
  // too and may live long. A command that nobody could wait for may live long too, and must keep
  // the locks.
  const bool is_all_done = count_commands_out_of_sight() == out_of_sight_before_;
  for (int32_t &held : handle_.own.lock_fd) {
    if (held != 0 && is_all_done) {
      ::flock(held - 1, LOCK_UN);
    }
    if (held != 0) {
      ::close(held - 1);
    }
    held = 0;
  }
}

int cache_lock::acquire(const char *func) {
  if (handle_.dev_mode != 0) {
    return ZOT_OK;
  }
  is_held_ = true;
  if (handle_.own.lock_depth++ != 0) {
    return ZOT_OK;
  }
  const int64_t deadline = deadline_of(handle_);
  for (const size_t folder : {0U, 1U}) {
    if (const int status = lock_folder(handle_, folder, deadline, func); status != ZOT_OK) {
      return status;
    }
  }
  return ZOT_OK;
}

bool cache_lock::try_acquire() {
  if (handle_.own.lock_depth != 0) {
    return handle_.own.lock_fd[0] != 0;
  }
  descriptor fd = open_root(handle_.conf_root);
  if (!fd.is_open() || try_lock(fd.get()) != outcome::locked) {
    return false;
  }
  is_held_ = true;
  ++handle_.own.lock_depth;
  handle_.own.lock_fd[0] = fd.release() + 1;
  return true;
}

bool is_scratch_held(const zot_ctx &handle) {
  if (handle.own.lock_depth == 0) {
    return true;
  }
  const int held = descriptor_of(handle, 1);
  return held >= 0 ? is_at(handle.tmp_root, held) : !open_root(handle.tmp_root).is_open();
}

locks_for_commands::locks_for_commands(const zot_ctx &handle) : handle_(handle) {
  for (size_t folder = 0; folder < std::size(flags_); ++folder) {
    if (const int fd = descriptor_of(handle, folder); fd >= 0) {
      flags_[folder] = ::fcntl(fd, F_GETFD);
      ::fcntl(fd, F_SETFD, 0);
    }
  }
}

locks_for_commands::~locks_for_commands() {
  const errno_keeper keep_errno;
  for (size_t folder = 0; folder < std::size(flags_); ++folder) {
    if (flags_[folder] >= 0) {
      ::fcntl(descriptor_of(handle_, folder), F_SETFD, flags_[folder]);
    }
  }
}

}  // namespace zot
