// SPDX-License-Identifier: Apache-2.0
// A shell command that runs in parallel with this process. It can be ended together with all
// processes that it started.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "tools/element/apply.hpp"

namespace zotconf {

// Where the command's standard output goes: `shared` to that of this process, `joined` to standard
// error.
enum class command_output { shared, joined };

class running_command {
 public:
  // Starts the command with the variables of run_command(), in its own process group, with
  // /dev/null as standard input.
  running_command(const std::string &command, const fs::path &folder, const fs::path &change_list,
                  command_output output = command_output::joined);
  running_command(const running_command &) = delete;
  running_command &operator=(const running_command &) = delete;
  // Kills the process group if the command is still running.
  ~running_command();

  // How the command ended; nullopt while it runs.
  std::optional<command_end> poll();

  // Sends SIGTERM to the whole group, and SIGKILL after half a second at most.
  void stop();

 private:
  void send(int signal) const;

  pid_t pid_ = -1;
  std::optional<command_end> end_;
};

// The result of a command that was stopped at its time limit.
command_end end_of_time(std::chrono::milliseconds limit);

// Like run_command(), but with a time limit and /dev/null as standard input. SIGINT and SIGTERM
// stop the command too.
command_end run_within(std::chrono::milliseconds limit, const std::string &command,
                       const fs::path &folder, const fs::path &change_list);

}  // namespace zotconf
