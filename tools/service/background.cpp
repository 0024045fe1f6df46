// SPDX-License-Identifier: Apache-2.0
#include "tools/service/background.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "tools/output/exit_status.hpp"

namespace zotconf {
namespace {

// The background process must not keep the locks and pipes of the caller open.
void close_inherited_files_but(int kept) {
  const auto number = static_cast<unsigned>(kept);
  static_cast<void>(::close_range(STDERR_FILENO + 1, number - 1, 0));
  static_cast<void>(::close_range(number + 1, ~0U, 0));
}

void take_stream(const char *path, int flags, int stream) {
  const zot::descriptor file(::open(path, flags | O_CLOEXEC, 0644));
  if (!file.is_open() || ::dup2(file.get(), stream) < 0) {
    throw_errno(std::string("cannot open ") + path);
  }
}

void leave_terminal(const fs::path &log) {
  take_stream("/dev/null", O_RDONLY, STDIN_FILENO);
  const char *const out = log.empty() ? "/dev/null" : log.c_str();
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    take_stream(out, O_WRONLY | O_APPEND | O_CREAT, stream);
  }
}

// Returns true when the other end has written a byte, and false when it was closed before.
bool wait_for_byte(int pipe) {
  char byte = 0;
  ssize_t got = 0;
  do {
    got = ::read(pipe, &byte, 1);
  } while (got < 0 && errno == EINTR);
  return got == 1;
}

int status_of(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      return exit_failure;
    }
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : exit_failure;
}

}  // namespace

int run_in_background(const std::function<int(const detach &)> &process) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw_errno("cannot create a pipe");
  }
  zot::descriptor read_end(ends[0]);
  zot::descriptor write_end(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) {
    throw_errno("cannot start a process");
  }
  if (child > 0) {
    write_end = zot::descriptor(-1);
    return wait_for_byte(read_end.get()) ? exit_success : status_of(child);
  }
  read_end = zot::descriptor(-1);
  close_inherited_files_but(write_end.get());
  ::setsid();
  return process([&write_end](const fs::path &log) {
    leave_terminal(log);
    write_all(write_end.get(), "+", "a pipe");
    write_end = zot::descriptor(-1);
  });
}

}  // namespace zotconf
