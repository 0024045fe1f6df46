// SPDX-License-Identifier: Apache-2.0
#include "tools/files/folder.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <utility>

namespace zotconf {
namespace {

constexpr int folder_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

using folder_stream = std::unique_ptr<DIR, zot::releaser<::closedir>>;

}  // namespace

folder::folder(const fs::path &path) : file_(::open(path.c_str(), folder_flags)), path_(path) {
  if (!file_.is_open()) {
    throw_errno("cannot open " + path.string());
  }
}

std::optional<folder> folder::find(const std::string &name) const {
  zot::descriptor file(::openat(get(), name.c_str(), folder_flags | O_NOFOLLOW));
  if (file.is_open()) {
    return folder(std::move(file), path_ / name);
  }
  if (is_exhausted(errno)) {
    throw_errno("cannot open " + (path_ / name).string());
  }
  return std::nullopt;
}

folder folder::make(const std::string &name) const {
  const fs::path path = path_ / name;
  if (::mkdirat(get(), name.c_str(), 0755) != 0 && errno != EEXIST) {
    throw_errno("cannot create " + path.string());
  }
  zot::descriptor file(::openat(get(), name.c_str(), folder_flags | O_NOFOLLOW));
  if (!file.is_open()) {
    throw_errno("cannot open " + path.string());
  }
  return {std::move(file), path};
}

void folder::each_name(const std::function<void(const std::string &)> &visit) const {
  zot::descriptor own(::openat(get(), ".", folder_flags));
  const folder_stream stream(own.is_open() ? ::fdopendir(own.get()) : nullptr);
  if (stream == nullptr) {
    throw_errno("cannot read " + path_.string());
  }
  own.release();
  errno = 0;
  while (const dirent *const entry = ::readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      visit(name);
    }
    errno = 0;
  }
  if (errno != 0) {
    throw_errno("cannot read " + path_.string());
  }
}

std::vector<std::string> folder::names() const {
  std::vector<std::string> found;
  each_name([&found](const std::string &name) { found.push_back(name); });
  return found;
}

// O_NONBLOCK: a FIFO of this name must not block the open.
zot::descriptor folder::open(const std::string &name) const {
  constexpr int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  zot::descriptor file(::openat(get(), name.c_str(), flags));
  if (!file.is_open() && is_exhausted(errno)) {
    throw_errno("cannot open " + (path_ / name).string());
  }
  struct stat info {};
  const bool fits = file.is_open() && ::fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode);
  return fits ? std::move(file) : zot::descriptor(-1);
}

std::optional<uint64_t> folder::size_of(const std::string &name) const {
  struct stat info {};
  if (::fstatat(get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(info.st_mode)) {
    return std::nullopt;
  }
  return static_cast<uint64_t>(info.st_size);
}

bool folder::has(const std::string &name) const {
  struct stat info {};
  return ::fstatat(get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

bool folder::is_other_than_file(const std::string &name) const {
  struct stat info {};
  return ::fstatat(get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(info.st_mode);
}

std::optional<std::string> folder::target_of(const std::string &name) const {
  std::array<char, PATH_MAX> target{};
  const ssize_t size = ::readlinkat(get(), name.c_str(), target.data(), target.size());
  return size < 0 ? std::nullopt
                  : std::optional(std::string(target.data(), static_cast<size_t>(size)));
}

void folder::write(const std::string &name, std::string_view bytes) const {
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const std::string path = (path_ / name).string();
  remove(name);
  zot::descriptor file(::openat(get(), name.c_str(), flags, 0644));
  if (!file.is_open()) {
    throw_errno("cannot create " + path);
  }
  write_all(file.get(), bytes, path);
  if (file.close() != 0) {
    throw_errno("cannot write " + path);
  }
}

void folder::link(const std::string &name, const std::string &target) const {
  remove(name);
  if (::symlinkat(target.c_str(), get(), name.c_str()) != 0) {
    throw_errno("cannot create " + (path_ / name).string());
  }
}

void folder::rename(const std::string &name, const folder &to, const std::string &new_name) const {
  if (::renameat(get(), name.c_str(), to.get(), new_name.c_str()) != 0) {
    throw_errno("cannot create " + (to.path() / new_name).string());
  }
}

void folder::stamp(const std::string &name, std::time_t time) const {
  const std::array<timespec, 2> times = {timespec{.tv_sec = time, .tv_nsec = 0},
                                         timespec{.tv_sec = time, .tv_nsec = 0}};
  static_cast<void>(::utimensat(get(), name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW));
}

void folder::remove(const std::string &name) const noexcept {
  if (::unlinkat(get(), name.c_str(), 0) != 0) {
    ::unlinkat(get(), name.c_str(), AT_REMOVEDIR);
  }
}

void folder::flush() const {
  if (::fsync(get()) != 0) {
    throw_errno("cannot flush " + path_.string());
  }
}

void folder::flush_file_system() const {
  if (::syncfs(get()) != 0) {
    throw_errno("cannot flush " + path_.string());
  }
}

}  // namespace zotconf
