// SPDX-License-Identifier: Apache-2.0
// A shell command that runs beside this process, which can end it with all that it started.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "tools/element/apply.hpp"

namespace zotconf {

class running_command {
 public:
  // Starts it with the variables of run_command(), in a process group of its own, without standard
  // input, its standard output joined to standard error.
  running_command(const std::string &command, const fs::path &folder, const fs::path &change_list);
  running_command(const running_command &) = delete;
  running_command &operator=(const running_command &) = delete;
  // Ends a group whose command still runs.
  ~running_command();

  // How it ended; nothing while it runs.
  std::optional<command_end> poll();

  // Sends a signal to the whole group.
  void send(int signal) const;

 private:
  pid_t pid_ = -1;
  std::optional<command_end> end_;
};

}  // namespace zotconf
