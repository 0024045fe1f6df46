// SPDX-License-Identifier: Apache-2.0
// A file that arrives piece by piece, and never gets more bytes than it should have.
#pragma once

#include <cstdint>
#include <string_view>

#include "tools/files/file_io.hpp"

namespace zotconf {

class partial_file {
 public:
  partial_file(fs::path at, uint64_t size);

  // The number of bytes that the file has now. 0 if it does not exist or is not a regular file.
  [[nodiscard]] uint64_t size_on_disk() const;

  // The functions below throw std::runtime_error, with the name of the file, when they fail.

  // Opens the file, creates it if it is missing, and removes everything from `begin` on.
  void open(uint64_t begin);
  // Adds bytes at the end. Writes nothing if the file would get more than its size.
  void append(std::string_view bytes);
  // Does nothing if the file is not open.
  void close();

  // Bytes up to the place where the next ones are written.
  [[nodiscard]] uint64_t end() const { return end_; }

 private:
  fs::path at_;
  uint64_t size_;
  uint64_t end_ = 0;
  zot::descriptor file_{-1};
};

}  // namespace zotconf
