// SPDX-License-Identifier: Apache-2.0
// Runs work in child processes, like a program that links the library: each child starts fresh, may
// be killed, and has a time limit.
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

// Thrown after SIGINT or SIGTERM.
class interrupted : public std::runtime_error {
 public:
  interrupted() : std::runtime_error("interrupted") {}
};

// Time limit of a child: longer than any step takes on a slow device.
inline constexpr std::chrono::minutes longest_child{2};

using environment_variables = std::map<std::string, std::string>;

// A child in its own process group, so that the commands that it starts end with it.
class child_process {
 public:
  // The result of the child is the text that the work returns, or the text of its exception.
  using work = std::function<std::string()>;

  child_process(const environment_variables &variables, const work &todo);
  child_process(const child_process &) = delete;
  child_process &operator=(const child_process &) = delete;
  // Kills the process group if the child still runs.
  ~child_process();

  [[nodiscard]] bool has_ended();
  void send(int signal) const;

  // Waits for the child. Returns the text of the work, or nullopt if SIGKILL ended the child.
  // Throws std::runtime_error if the work failed, and `interrupted`.
  std::optional<std::string> wait(wake_up &wake);

 private:
  [[nodiscard]] std::string read_result() const;

  zot::descriptor result_{-1};
  pid_t pid_ = -1;
  std::optional<int> status_;
};

// Runs the work and returns its text. Throws std::runtime_error if it failed or was killed, and
// `interrupted`.
std::string run_apart(wake_up &wake, const environment_variables &variables,
                      const child_process::work &todo);

}  // namespace zotconf
