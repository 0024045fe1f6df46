// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/volume.hpp"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "utilities/owner.hpp"

namespace zot::test {
namespace {

constexpr const char *volume_options = "size=1m,nr_inodes=500";

void must(bool succeeded, const std::string &what) {
  if (!succeeded) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

void write_line(const char *path, const std::string &line) {
  const descriptor file(::open(path, O_WRONLY | O_CLOEXEC));
  static_cast<void>(::write(file.get(), line.data(), line.size()));
}

}  // namespace

const char *name_of(shortage lacking) {
  if (lacking == shortage::room) {
    return "pages left";
  }
  return lacking == shortage::files ? "files left" : "read-only";
}

volume::volume(std::string path) : path_(std::move(path)) {
  std::filesystem::create_directories(path_);
  must(::mount("tmpfs", path_.c_str(), "tmpfs", 0, volume_options) == 0, "mount " + path_);
}

volume::~volume() {
  ::umount2(path_.c_str(), MNT_DETACH);
}

void volume::take(shortage lacking, unsigned left) const {
  if (lacking == shortage::room) {
    fill(left);
  } else if (lacking == shortage::files) {
    const struct statvfs now = state();
    remount(0, "nr_inodes=" + std::to_string(now.f_files - now.f_ffree + left));
  } else {
    remount(MS_RDONLY, volume_options);
  }
}

void volume::give_back() const {
  remount(0, volume_options);
  must(::unlink(filler().c_str()) == 0 || errno == ENOENT, "unlink");
}

struct statvfs volume::state() const {
  struct statvfs now {};
  must(::statvfs(path_.c_str(), &now) == 0, "statvfs");
  return now;
}

void volume::fill(unsigned pages_left) const {
  const descriptor file(::open(filler().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const struct statvfs now = state();
  must(file.is_open() && now.f_bfree >= pages_left, "fill");
  const auto bytes = static_cast<off_t>((now.f_bfree - pages_left) * now.f_bsize);
  errno = bytes == 0 ? 0 : ::posix_fallocate(file.get(), 0, bytes);
  must(errno == 0, "posix_fallocate");
}

void volume::remount(unsigned long flags, const std::string &options) const {
  must(::mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | flags, options.c_str()) == 0,
       "remount with " + options);
}

bool enter_own_mounts() {
  const std::string user = std::to_string(::getuid());
  const std::string group = std::to_string(::getgid());
  if (::unshare(CLONE_NEWNS) != 0) {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
      return false;
    }
    write_line("/proc/self/setgroups", "deny");
    write_line("/proc/self/uid_map", "0 " + user + " 1");
    write_line("/proc/self/gid_map", "0 " + group + " 1");
  }
  return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace zot::test
