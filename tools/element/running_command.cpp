// SPDX-License-Identifier: Apache-2.0
#include "tools/element/running_command.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "tools/element/wake_up.hpp"
#include "tools/output/duration.hpp"

namespace zotconf {
namespace {

using namespace std::chrono_literals;

constexpr int cannot_execute = 126;
// Time for a command to end after SIGTERM before it is killed.
constexpr std::chrono::milliseconds grace = 500ms;

// Runs in the child: calls only functions that are safe after fork().
[[noreturn]] void become(const char *command, command_output output) {
  ::setpgid(0, 0);
  const int nothing = ::open("/dev/null", O_RDONLY);
  if (nothing >= 0 && ::dup2(nothing, STDIN_FILENO) >= 0 &&
      (output == command_output::shared || ::dup2(STDERR_FILENO, STDOUT_FILENO) >= 0)) {
    if (nothing > STDERR_FILENO) {
      ::close(nothing);
    }
    ::execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
  }
  ::_exit(cannot_execute);
}

}  // namespace

running_command::running_command(const std::string &command, const fs::path &folder,
                                 const fs::path &change_list, command_output output) {
  export_paths(folder, change_list);
  pid_ = ::fork();
  if (pid_ < 0) {
    throw_errno("cannot run " + command);
  }
  if (pid_ == 0) {
    become(command.c_str(), output);
  }
  // Both parent and child create the process group, so that it exists whichever runs first.
  ::setpgid(pid_, pid_);
}

running_command::~running_command() {
  if (!end_) {
    send(SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
}

std::optional<command_end> running_command::poll() {
  int status = 0;
  if (!end_ && ::waitpid(pid_, &status, WNOHANG) == pid_) {
    end_ = end_of_command(status);
  }
  return end_;
}

void running_command::send(int signal) const {
  ::kill(-pid_, signal);
}

void running_command::stop() {
  send(SIGTERM);
  const auto end = std::chrono::steady_clock::now() + grace;
  while (!poll() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(5ms);
  }
  // Kills whatever ignored SIGTERM: the command or a process that it started.
  send(SIGKILL);
}

command_end end_of_time(std::chrono::milliseconds limit) {
  return {answer::none, "stopped after " + duration_text(limit)};
}

command_end run_within(std::chrono::milliseconds limit, const std::string &command,
                       const fs::path &folder, const fs::path &change_list) {
  wake_up wake;
  running_command running(command, folder, change_list, command_output::shared);
  const auto end_of_limit = wake_up::clock::now() + limit;
  while (wake.stop_signal() == 0 && wake_up::clock::now() < end_of_limit) {
    if (const auto end = running.poll()) {
      return *end;
    }
    wake.wait_until(end_of_limit);
  }
  if (const auto end = running.poll()) {
    return *end;
  }
  running.stop();
  return wake.stop_signal() != 0 ? command_end{answer::none, "interrupted"} : end_of_time(limit);
}

}  // namespace zotconf
