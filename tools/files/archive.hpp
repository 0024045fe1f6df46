// SPDX-License-Identifier: Apache-2.0
// A gzip-compressed tar archive, written to an unnamed temporary file. So its size is known before
// the first byte is sent, and ten thousand members take no memory.
#pragma once

#include <archive.h>

#include <cstdint>
#include <stop_token>
#include <string>

#include "utilities/owner.hpp"

namespace zotconf {

class gzip_tar {
 public:
  // Fastest compression: the archive only crosses the loopback interface, so time matters more than
  // size.
  static constexpr int default_compression = 1;

  // The compression is 0 (none, the format is the same) to 9 (smallest). Adding files ends with an
  // exception once a stop is requested.
  explicit gzip_tar(std::stop_token stop = {}, int compression = default_compression);
  gzip_tar(const gzip_tar &) = delete;
  gzip_tar &operator=(const gzip_tar &) = delete;
  ~gzip_tar();

  // Adds the regular file behind `fd` under `name`.
  void add(int fd, const std::string &name);

  struct finished {
    zot::descriptor file;
    uint64_t size;
  };
  // Writes the end of the archive and hands it out; nothing can be added after it.
  finished finish();

 private:
  struct closer {
    void operator()(struct archive *writer) const;
  };

  static la_ssize_t write(struct archive *writer, void *self, const void *bytes, size_t size);

  std::stop_token stop_;
  zot::file_stream spool_;
  bool is_given_up_ = false;
  std::unique_ptr<struct archive, closer> writer_;
};

}  // namespace zotconf
