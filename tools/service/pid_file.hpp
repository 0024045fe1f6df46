// SPDX-License-Identifier: Apache-2.0
// A file with the process ID of the running process, which keeps it locked.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"

namespace zotconf {

class pid_file {
 public:
  // Creates and locks the file. Throws if another process has it locked, or if it is not a pid
  // file.
  explicit pid_file(fs::path path);
  pid_file(const pid_file &) = delete;
  pid_file &operator=(const pid_file &) = delete;
  // Removes the file if it still has what write() wrote, or is still empty.
  ~pid_file();

  // Writes the process ID.
  void write();

 private:
  fs::path path_;
  zot::descriptor file_{-1};
  std::string written_;
};

}  // namespace zotconf
