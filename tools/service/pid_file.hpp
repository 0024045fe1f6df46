// SPDX-License-Identifier: Apache-2.0
// A file that holds the number of the running process.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"

namespace zotconf {

class pid_file {
 public:
  // Throws when the file names a process that is running, or is no pid file.
  explicit pid_file(fs::path path);
  pid_file(const pid_file &) = delete;
  pid_file &operator=(const pid_file &) = delete;
  // Removes what write() wrote.
  ~pid_file();

  // Writes the number of this process, in one step.
  void write();

 private:
  fs::path path_;
  std::string written_;
};

}  // namespace zotconf
