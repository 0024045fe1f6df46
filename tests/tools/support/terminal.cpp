// SPDX-License-Identifier: Apache-2.0
#include "tests/tools/support/terminal.hpp"

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace zot::test {
namespace {

[[noreturn]] void become_zotconf(std::vector<std::string> words, const environment &variables) {
  ::unsetenv("NO_COLOR");
  ::setenv("TERM", "xterm", 1);
  for (const auto &[name, value] : variables) {
    ::setenv(name.c_str(), value.c_str(), 1);
  }
  std::vector<char *> argv;
  for (std::string &word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  ::execv(argv[0], argv.data());
  ::_exit(127);
}

// Reads until the last process has closed the terminal.
std::string read_all(int terminal) {
  std::string text;
  std::array<char, 4096> chunk{};
  for (;;) {
    const ssize_t got = ::read(terminal, chunk.data(), chunk.size());
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return text;
    }
    text.append(chunk.data(), static_cast<size_t>(got));
  }
}

}  // namespace

finished run_on_terminal(const std::vector<std::string> &args, const environment &variables) {
  std::vector<std::string> words = {ZOTCONF_PROGRAM};
  words.insert(words.end(), args.begin(), args.end());
  int terminal = -1;
  const pid_t pid = ::forkpty(&terminal, nullptr, nullptr, nullptr);
  if (pid < 0) {
    throw std::runtime_error("forkpty failed");
  }
  if (pid == 0) {
    become_zotconf(std::move(words), variables);
  }
  finished done;
  done.out = read_all(terminal);
  ::close(terminal);
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) {
    throw std::runtime_error("waitpid failed");
  }
  done.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return done;
}

}  // namespace zot::test
