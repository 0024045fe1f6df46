// SPDX-License-Identifier: Apache-2.0
// A file with the process ID of the running process.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"

namespace zotconf {

class pid_file {
 public:
  // Throws if the file names a running process, or is not a pid file.
  explicit pid_file(fs::path path);
  pid_file(const pid_file &) = delete;
  pid_file &operator=(const pid_file &) = delete;
  // Removes the file if it still has what write() wrote.
  ~pid_file();

  // Writes the process ID, in one step.
  void write();

 private:
  fs::path path_;
  std::string written_;
};

}  // namespace zotconf
