// SPDX-License-Identifier: Apache-2.0
#include "tools/files/file_io.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "zot_conf.h"

namespace zotconf {
namespace {

// How much a text grows when its file is longer than its size says.
constexpr size_t growth = 65536;

// Returns 0 at the end of the file.
size_t read_some(int fd, std::span<char> to, const std::string &name) {
  for (;;) {
    const ssize_t got = ::read(fd, to.data(), to.size());
    if (got >= 0) {
      return static_cast<size_t>(got);
    }
    if (errno != EINTR) {
      throw_errno("cannot read " + name);
    }
  }
}

bool is_regular(int fd) {
  struct stat info {};
  return ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace

bool is_there(const fs::path &path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

void check_replaceable(const fs::path &path) {
  std::error_code ignored;
  const fs::file_status found = fs::symlink_status(path, ignored);
  if (fs::exists(found) && !fs::is_regular_file(found)) {
    throw std::runtime_error("cannot replace " + path.string() + ": not a regular file");
  }
}

void throw_errno(const std::string &what) {
  throw std::system_error(errno, std::generic_category(), what);
}

bool is_exhausted(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM;
}

void write_all(int fd, std::string_view bytes, const std::string &name) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw_errno("cannot write " + name);
    }
    bytes.remove_prefix(static_cast<size_t>(written));
  }
}

std::string read_file_at(int fd, const std::string &name) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    throw_errno("cannot read " + name);
  }
  std::string bytes;
  // Where size_t has four bytes, the size of a longer file would be truncated.
  if (std::cmp_greater_equal(info.st_size, bytes.max_size())) {
    errno = EFBIG;
    throw_errno("cannot read " + name);
  }
  // One byte more than the file has, so that its end is found without more room.
  bytes.resize(static_cast<size_t>(info.st_size) + 1);
  for (size_t done = 0;;) {
    const size_t got = read_some(fd, std::span(bytes).subspan(done), name);
    done += got;
    if (got == 0) {
      bytes.resize(done);
      return bytes;
    }
    if (done == bytes.size()) {
      bytes.resize(done + growth);
    }
  }
}

std::string read_beginning_at(int fd, size_t most, const std::string &name) {
  std::string bytes(most, '\0');
  size_t done = 0;
  while (done < most) {
    const size_t got = read_some(fd, std::span(bytes).subspan(done), name);
    if (got == 0) {
      break;
    }
    done += got;
  }
  bytes.resize(done);
  return bytes;
}

std::string read_file_text(const fs::path &path) {
  const zot::descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.is_open()) {
    throw_errno("cannot open " + path.string());
  }
  return read_file_at(file.get(), path.string());
}

fs::path temporary_beside(const fs::path &path) {
  // The name is longer than any key, so it cannot be another entry's file.
  return path.parent_path() / ("." + sha256_text(path.filename().string()) + ".tmp");
}

void write_beside(const fs::path &path, std::string_view bytes, durability kept) {
  const fs::path temporary = temporary_beside(path);
  zot::descriptor file(
      ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!file.is_open()) {
    throw_errno("cannot create " + temporary.string());
  }
  write_all(file.get(), bytes, temporary.string());
  const bool flushed = kept == durability::buffered || ::fsync(file.get()) == 0;
  if (!flushed || file.close() != 0) {
    throw_errno("cannot write " + temporary.string());
  }
}

replacement::~replacement() {
  if (!is_finished_) {
    std::error_code ignored;
    fs::remove(temporary_beside(path_), ignored);
  }
}

void replacement::finish() {
  if (::rename(temporary_beside(path_).c_str(), path_.c_str()) != 0) {
    throw_errno("cannot replace " + path_.string());
  }
  is_finished_ = true;
}

void replace_file(const fs::path &path, std::string_view bytes, durability kept) {
  replacement next(path);
  write_beside(path, bytes, kept);
  next.finish();
}

zot::descriptor open_beneath(const fs::path &root, std::span<const std::string> parts) {
  zot::descriptor at(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (size_t i = 0; i < parts.size() && at.is_open(); ++i) {
    const bool last = i + 1 == parts.size();
    // O_NONBLOCK: a FIFO at the path must not block the open.
    const int kind = last ? O_NONBLOCK : O_DIRECTORY;
    at = zot::descriptor(
        ::openat(at.get(), parts[i].c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | kind));
  }
  if (at.is_open() && !is_regular(at.get())) {
    return zot::descriptor(-1);
  }
  return at;
}

std::string sha256_text(std::string_view bytes) {
  std::array<char, ZOT_CHECKSUM_LEN + 1> text{};
  if (calc_sha256(bytes.data(), static_cast<uint32_t>(bytes.size()), text.data(), text.size()) !=
      0) {
    throw std::runtime_error("cannot compute a checksum");
  }
  return text.data();
}

temporary_folder::temporary_folder(const fs::path &parent) {
  std::string name = (parent / "zotconf-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw_errno("cannot create " + name);
  }
  path_ = name;
}

temporary_folder::~temporary_folder() {
  if (is_kept_) {
    return;
  }
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace zotconf
