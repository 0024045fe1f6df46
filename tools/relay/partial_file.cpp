// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/partial_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <stdexcept>
#include <utility>

namespace zotconf {

partial_file::partial_file(fs::path at, uint64_t size) : at_(std::move(at)), size_(size) {}

uint64_t partial_file::size_on_disk() const {
  struct stat info {};
  const bool is_file = ::lstat(at_.c_str(), &info) == 0 && S_ISREG(info.st_mode);
  return is_file ? static_cast<uint64_t>(info.st_size) : 0;
}

void partial_file::open(uint64_t begin) {
  // O_NONBLOCK: a FIFO at the path must not block the open.
  file_ = zot::descriptor(
      ::open(at_.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
  struct stat info {};
  if (!file_.is_open() || ::fstat(file_.get(), &info) != 0) {
    throw_errno("cannot create " + at_.string());
  }
  if (!S_ISREG(info.st_mode)) {
    throw std::runtime_error(at_.string() + " is not a regular file");
  }
  const auto offset = static_cast<off_t>(begin);
  if (::ftruncate(file_.get(), offset) != 0 || ::lseek(file_.get(), offset, SEEK_SET) < 0) {
    throw_errno("cannot write " + at_.string());
  }
  end_ = begin;
}

void partial_file::append(std::string_view bytes) {
  if (bytes.size() > size_ - end_) {
    throw std::runtime_error("more than " + std::to_string(size_) + " bytes");
  }
  write_all(file_.get(), bytes, at_.string());
  end_ += bytes.size();
}

void partial_file::close() {
  if (file_.is_open() && file_.close() != 0) {
    throw_errno("cannot write " + at_.string());
  }
}

}  // namespace zotconf
