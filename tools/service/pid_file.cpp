// SPDX-License-Identifier: Apache-2.0
#include "tools/service/pid_file.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace zotconf {
namespace {

// The number in a pid file; 0 for an empty file, -1 for any other text.
pid_t pid_in(std::string_view text) {
  while (!text.empty() && text.back() == '\n') {
    text.remove_suffix(1);
  }
  if (text.empty()) {
    return 0;
  }
  pid_t pid = 0;
  const char *const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, pid);
  return error == std::errc() && stop == end && pid > 0 ? pid : -1;
}

// Locks the file at a path, which another process may remove at any moment. Not open if another
// process holds the lock.
zot::descriptor lock_file_at(const fs::path &path) {
  for (;;) {
    zot::descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!file.is_open()) {
      throw_errno("cannot open " + path.string());
    }
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
      return zot::descriptor(-1);
    }
    struct stat locked {};
    struct stat there {};
    if (::fstat(file.get(), &locked) == 0 && ::stat(path.c_str(), &there) == 0 &&
        locked.st_ino == there.st_ino && locked.st_dev == there.st_dev) {
      return file;
    }
  }
}

}  // namespace

// The process ID alone would not do: after a restart of the machine another process may have it.
pid_file::pid_file(fs::path path) : path_(std::move(path)) {
  const pid_t pid = is_there(path_) ? pid_in(read_file_text(path_)) : 0;
  if (pid < 0) {
    throw std::runtime_error(path_.string() + ": not a pid file, so it is not overwritten");
  }
  file_ = lock_file_at(path_);
  if (!file_.is_open()) {
    // A service that starts at this moment has not written its process ID yet.
    throw std::runtime_error(path_.string() + " belongs to a running service" +
                             (pid == 0 ? "" : "; stop it with: kill " + std::to_string(pid)));
  }
}

pid_file::~pid_file() {
  try {
    if (is_there(path_) && read_file_text(path_) == written_) {
      fs::remove(path_);
    }
  } catch (const std::exception &) {
    // The file stays; nobody holds its lock, so the next start takes it.
  }
}

void pid_file::write() {
  written_ = std::to_string(::getpid()) + "\n";
  if (::ftruncate(file_.get(), 0) != 0) {
    throw_errno("cannot write " + path_.string());
  }
  write_all(file_.get(), written_, path_.string());
}

}  // namespace zotconf
