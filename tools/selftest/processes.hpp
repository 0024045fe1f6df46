// SPDX-License-Identifier: Apache-2.0
// Work in child processes, as a process that links the library does it: each one starts anew, may
// be killed, and ends within a limit.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

#include "tools/element/wake_up.hpp"

namespace zotconf {

// SIGINT or SIGTERM came.
class interrupted : public std::runtime_error {
 public:
  interrupted() : std::runtime_error("interrupted") {}
};

// Longer than any step takes on a slow device.
inline constexpr std::chrono::minutes longest_child{2};

using environment_variables = std::map<std::string, std::string>;

// One child in a process group of its own, so that the commands that it starts end with it.
class child_process {
 public:
  // The text that the work returns, or that of its exception, is the result of the child.
  using work = std::function<std::string()>;

  child_process(const environment_variables &variables, const work &todo);
  child_process(const child_process &) = delete;
  child_process &operator=(const child_process &) = delete;
  // Kills the group of a child that still runs.
  ~child_process();

  [[nodiscard]] bool has_ended();
  void send(int signal) const;

  // Waits for the end. Returns the text of the work; nothing when SIGKILL ended the child. Throws
  // std::runtime_error when the work failed, and `interrupted`.
  std::optional<std::string> wait(wake_up &wake);

 private:
  [[nodiscard]] std::string read_result() const;

  zot::descriptor result_{-1};
  pid_t pid_ = -1;
  std::optional<int> status_;
};

// Runs the work to its end. Returns its text. Throws std::runtime_error when it failed or was
// killed, and `interrupted`.
std::string run_apart(wake_up &wake, const environment_variables &variables,
                      const child_process::work &todo);

}  // namespace zotconf
