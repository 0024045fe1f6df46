// SPDX-License-Identifier: Apache-2.0
#include "tools/files/archive.hpp"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "tools/files/file_io.hpp"

namespace zotconf {
namespace {

struct entry_freer {
  void operator()(archive_entry *entry) const { archive_entry_free(entry); }
};
using entry_owner = std::unique_ptr<archive_entry, entry_freer>;

void require(int status, struct archive *writer) {
  if (status != ARCHIVE_OK) {
    const char *const text = archive_error_string(writer);
    throw std::runtime_error(std::string("cannot build the archive: ") +
                             (text != nullptr ? text : "unknown"));
  }
}

// Copies exactly `size` bytes: if a file shrank, the archive would be malformed.
void write_content(struct archive *writer, int fd, la_int64_t size, const std::string &name,
                   const std::stop_token &stop) {
  std::array<char, 65536> chunk{};
  while (size > 0) {
    if (stop.stop_requested()) {
      throw std::runtime_error("stopped");
    }
    const auto want = static_cast<size_t>(std::min<la_int64_t>(size, chunk.size()));
    const ssize_t got = ::read(fd, chunk.data(), want);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      throw std::runtime_error("cannot read " + name);
    }
    if (archive_write_data(writer, chunk.data(), static_cast<size_t>(got)) != got) {
      require(ARCHIVE_FATAL, writer);
    }
    size -= got;
  }
}

}  // namespace

void gzip_tar::closer::operator()(struct archive *writer) const {
  archive_write_free(writer);
}

// libarchive calls this with each piece of the archive.
la_ssize_t gzip_tar::write(struct archive *writer, void *self, const void *bytes, size_t size) {
  const auto &own = *static_cast<const gzip_tar *>(self);
  if (own.is_given_up_) {
    archive_set_error(writer, ECANCELED, "given up");
    return -1;
  }
  ssize_t written = 0;
  do {
    written = ::write(::fileno(own.spool_.get()), bytes, size);
  } while (written < 0 && errno == EINTR);
  if (written < 0) {
    archive_set_error(writer, errno, "%s", std::strerror(errno));
  }
  return written;
}

// libarchive fills up an unfinished member to its size. It ends that when nothing can be written.
gzip_tar::~gzip_tar() {
  is_given_up_ = true;
}

gzip_tar::gzip_tar(std::stop_token stop, int compression)
    : stop_(std::move(stop)), spool_(std::tmpfile()), writer_(archive_write_new()) {
  if (spool_ == nullptr) {
    throw_errno("cannot create a temporary file");
  }
  if (writer_ == nullptr) {
    throw std::bad_alloc();
  }
  require(archive_write_set_format_ustar(writer_.get()), writer_.get());
  require(archive_write_add_filter_gzip(writer_.get()), writer_.get());
  const std::string options =
      "gzip:compression-level=" + std::to_string(compression) + ",gzip:!timestamp";
  require(archive_write_set_options(writer_.get(), options.c_str()), writer_.get());
  // The end is not filled up as on a tape.
  require(archive_write_set_bytes_in_last_block(writer_.get(), 1), writer_.get());
  require(archive_write_open(writer_.get(), this, nullptr, write, nullptr), writer_.get());
}

void gzip_tar::add(int fd, const std::string &name) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) {
    throw_errno("cannot read " + name);
  }
  const entry_owner entry(archive_entry_new());
  if (entry == nullptr) {
    throw std::bad_alloc();
  }
  archive_entry_set_pathname(entry.get(), name.c_str());
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), 0644);
  archive_entry_set_size(entry.get(), info.st_size);
  archive_entry_set_mtime(entry.get(), info.st_mtime, 0);
  require(archive_write_header(writer_.get(), entry.get()), writer_.get());
  write_content(writer_.get(), fd, info.st_size, name, stop_);
}

gzip_tar::finished gzip_tar::finish() {
  require(archive_write_close(writer_.get()), writer_.get());
  writer_.reset();
  zot::descriptor file(::fcntl(::fileno(spool_.get()), F_DUPFD_CLOEXEC, 0));
  struct stat info {};
  if (!file.is_open() || ::fstat(file.get(), &info) != 0) {
    throw_errno("cannot read the archive");
  }
  return {.file = std::move(file), .size = static_cast<uint64_t>(info.st_size)};
}

}  // namespace zotconf
