// SPDX-License-Identifier: Apache-2.0
#include "tools/element/running_command.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace zotconf {
namespace {

constexpr int cannot_execute = 126;

// In the child: nothing but calls that are safe after fork().
[[noreturn]] void become(const char *command) {
  ::setpgid(0, 0);
  const int nothing = ::open("/dev/null", O_RDONLY);
  if (nothing >= 0 && ::dup2(nothing, STDIN_FILENO) >= 0 &&
      ::dup2(STDERR_FILENO, STDOUT_FILENO) >= 0) {
    if (nothing > STDERR_FILENO) {
      ::close(nothing);
    }
    ::execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
  }
  ::_exit(cannot_execute);
}

}  // namespace

running_command::running_command(const std::string &command, const fs::path &folder,
                                 const fs::path &change_list) {
  export_paths(folder, change_list);
  pid_ = ::fork();
  if (pid_ < 0) {
    throw_errno("cannot run " + command);
  }
  if (pid_ == 0) {
    become(command.c_str());
  }
  // Whoever comes first makes the group, so that it is there for both.
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

}  // namespace zotconf
