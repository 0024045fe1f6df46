// SPDX-License-Identifier: Apache-2.0
#include "tools/selftest/processes.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "tools/files/file_io.hpp"

namespace zotconf {
namespace {

// A result of this size fits into a pipe before it is read.
constexpr size_t longest_result = 2048;

void set_variables(const environment_variables &variables) {
  for (const auto &[name, value] : variables) {
    ::setenv(name.c_str(), value.c_str(), 1);
  }
}

void leave_parent(pid_t parent) {
  ::setpgid(0, 0);
  for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGPIPE}) {
    std::signal(number, SIG_DFL);
  }
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) {
    std::_Exit(EXIT_FAILURE);
  }
  // Only the report may go to standard output.
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
}

int do_work(const child_process::work &todo, std::string &result) {
  try {
    result = todo();
    return EXIT_SUCCESS;
  } catch (const std::exception &error) {
    result = error.what();
    return EXIT_FAILURE;
  }
}

[[noreturn]] void run_child(int result_fd, const child_process::work &todo) {
  std::string result;
  const int status = do_work(todo, result);
  result.resize(std::min(result.size(), longest_result));
  static_cast<void>(!::write(result_fd, result.data(), result.size()));
  std::exit(status);
}

}  // namespace

child_process::child_process(const environment_variables &variables, const work &todo) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw_errno("cannot make a pipe");
  }
  result_ = zot::descriptor(ends[0]);
  const zot::descriptor write_end(ends[1]);
  const pid_t parent = ::getpid();
  // Otherwise the child would write the buffered output again.
  static_cast<void>(std::fflush(nullptr));
  pid_ = ::fork();
  if (pid_ < 0) {
    throw_errno("cannot start a process");
  }
  if (pid_ == 0) {
    leave_parent(parent);
    set_variables(variables);
    run_child(write_end.get(), todo);
  }
  // Both parent and child create the process group, so that it exists whichever runs first.
  ::setpgid(pid_, pid_);
}

child_process::~child_process() {
  if (!has_ended()) {
    send(SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
}

bool child_process::has_ended() {
  int status = 0;
  if (!status_ && ::waitpid(pid_, &status, WNOHANG) == pid_) {
    status_ = status;
  }
  return status_.has_value();
}

void child_process::send(int signal) const {
  ::kill(-pid_, signal);
}

std::optional<std::string> child_process::wait(wake_up &wake) {
  const auto end = wake_up::clock::now() + longest_child;
  while (!has_ended()) {
    if (wake.stop_signal() != 0) {
      throw interrupted();
    }
    if (wake_up::clock::now() >= end) {
      throw std::runtime_error("took longer than " + std::to_string(longest_child.count()) +
                               " minutes");
    }
    wake.wait_until(end);
  }
  const int status = status_.value();
  if (WIFSIGNALED(status)) {
    if (WTERMSIG(status) == SIGKILL) {
      return std::nullopt;
    }
    throw std::runtime_error("ended by signal " + std::to_string(WTERMSIG(status)));
  }
  const std::string result = read_result();
  if (WEXITSTATUS(status) != EXIT_SUCCESS) {
    throw std::runtime_error(result.empty() ? "ended without a result" : result);
  }
  return result;
}

std::string child_process::read_result() const {
  std::array<char, longest_result> result{};
  const ssize_t length = ::read(result_.get(), result.data(), result.size());
  return length > 0 ? std::string(result.data(), static_cast<size_t>(length)) : "";
}

std::string run_apart(wake_up &wake, const environment_variables &variables,
                      const child_process::work &todo) {
  const auto result = child_process(variables, todo).wait(wake);
  if (!result) {
    throw std::runtime_error("ended by signal " + std::to_string(SIGKILL));
  }
  return *result;
}

}  // namespace zotconf
