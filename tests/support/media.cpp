// SPDX-License-Identifier: Apache-2.0
#include "media.hpp"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace zot::test {

media_state &media() {
  static media_state state;
  return state;
}

}  // namespace zot::test

namespace {

bool is_on_broken(const struct stat &st) {
  const dev_t broken = zot::test::media().broken;
  return broken != 0 && st.st_dev == broken;
}

}  // namespace

// Replaces syncfs() of the C library.
extern "C" int syncfs(int fd) noexcept {
  zot::test::media_state &state = zot::test::media();
  struct stat found {};
  if (::fstat(fd, &found) == 0) {
    state.synchronised.push_back(found.st_dev);
  }
  const bool is_told_to_fail = state.failing_call > 0 && --state.failing_call == 0;
  if (is_told_to_fail || is_on_broken(found)) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(::syscall(SYS_syncfs, fd));
}

// Replaces fsync() of the C library.
extern "C" int fsync(int fd) {
  struct stat found {};
  if (::fstat(fd, &found) == 0 && is_on_broken(found)) {
    errno = EIO;
    return -1;
  }
  return static_cast<int>(::syscall(SYS_fsync, fd));
}

// Replaces write() of the C library.
extern "C" ssize_t write(int fd, const void *bytes, size_t size) {
  std::atomic<int> &interruptions = zot::test::media().interruptions;
  if (interruptions > 0) {
    --interruptions;
    errno = EINTR;
    return -1;
  }
  return static_cast<ssize_t>(::syscall(SYS_write, fd, bytes, size));
}

// Replaces fstatvfs() of the C library, which has this name where offsets have 64 bits.
extern "C" int fstatvfs(int fd, struct statvfs *found) noexcept {
  using function = int(int, struct statvfs *);
  static auto *const original = reinterpret_cast<function *>(::dlsym(RTLD_NEXT, "fstatvfs64"));
  const int result = original(fd, found);
  if (result == 0 && zot::test::media().change_figures) {
    zot::test::media().change_figures(*found);
  }
  return result;
}
