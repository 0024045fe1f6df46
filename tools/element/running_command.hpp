// SPDX-License-Identifier: Apache-2.0
// A shell command that runs beside this process, which can end it with all that it started.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "tools/element/apply.hpp"

namespace zotconf {

// Where its standard output goes: to that of this process, or to standard error.
enum class command_output { shared, joined };

class running_command {
 public:
  // Starts it with the variables of run_command(), in a process group of its own, without standard
  // input.
  running_command(const std::string &command, const fs::path &folder, const fs::path &change_list,
                  command_output output = command_output::joined);
  running_command(const running_command &) = delete;
  running_command &operator=(const running_command &) = delete;
  // Ends a group whose command still runs.
  ~running_command();

  // How it ended; nothing while it runs.
  std::optional<command_end> poll();

  // Asks the whole group to end, and ends what has not done so after half a second.
  void stop();

 private:
  void send(int signal) const;

  pid_t pid_ = -1;
  std::optional<command_end> end_;
};

// What is told of a command that was stopped after its time.
command_end end_of_time(std::chrono::milliseconds limit);

// The same as run_command() for at most as long as the limit, and without standard input. SIGINT
// and SIGTERM stop it as well.
command_end run_within(std::chrono::milliseconds limit, const std::string &command,
                       const fs::path &folder, const fs::path &change_list);

}  // namespace zotconf
