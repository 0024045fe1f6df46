// SPDX-License-Identifier: Apache-2.0
// A gzip-compressed tar archive, written to an unnamed temporary file. So its size is known before
// the first byte is sent, and ten thousand members take no memory.
#pragma once

#include <sys/types.h>

#include <string>

#include "utilities/owner.hpp"

struct archive;

namespace zotconf {

class gzip_tar {
 public:
  gzip_tar();

  // Adds the regular file behind `fd` under `name`.
  void add(int fd, const std::string &name);
  // Writes the end of the archive. Nothing can be added afterwards.
  void finish();

  [[nodiscard]] size_t size() const;
  // Reads up to `room` bytes at `offset`.
  size_t read(size_t offset, char *buffer, size_t room) const;

 private:
  struct closer {
    void operator()(struct archive *writer) const;
  };

  zot::file_stream spool_;
  std::unique_ptr<struct archive, closer> writer_;
};

}  // namespace zotconf
