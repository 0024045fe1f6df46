// SPDX-License-Identifier: Apache-2.0
#include "tests/tools/support/process.hpp"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace zot::test {
namespace {

using namespace std::chrono_literals;

void redirect(const std::string &path, int to) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd < 0 || ::dup2(fd, to) < 0) {
    ::_exit(126);
  }
  ::close(fd);
}

enum class rights { of_the_test, of_a_user };

// Drops the capabilities by which root reads and replaces every file, for the program that is
// executed next.
void give_up_root_rights() {
  for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
    if (::prctl(PR_CAPBSET_DROP, capability) != 0 && ::geteuid() == 0) {
      ::_exit(126);
    }
  }
}

pid_t start(const std::vector<std::string> &args, const environment &variables,
            const std::string &out, const std::string &err, rights held = rights::of_the_test) {
  std::vector<std::string> words = {ZOTCONF_PROGRAM};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char *> argv;
  for (std::string &word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0) {
    throw std::runtime_error("fork failed");
  }
  if (pid == 0) {
    redirect(out, STDOUT_FILENO);
    redirect(err, STDERR_FILENO);
    for (const auto &[name, value] : variables) {
      ::setenv(name.c_str(), value.c_str(), 1);
    }
    if (held == rights::of_a_user) {
      give_up_root_rights();
    }
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  return pid;
}

int wait_for_end(pid_t pid) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) {
    throw std::runtime_error("waitpid failed");
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The port in the first line, as text or JSON; 0 while the line is incomplete.
std::uint16_t told_port(const std::string &output) {
  if (output.find('\n') == std::string::npos) {
    return 0;
  }
  for (const std::string begin :
       {"listening on 127.0.0.1:", R"({"listening":{"host":"127.0.0.1","port":)"}) {
    if (output.starts_with(begin)) {
      return static_cast<std::uint16_t>(std::stoul(output.substr(begin.size())));
    }
  }
  throw std::runtime_error("unexpected first line: " + output);
}

finished run_to_its_end(const std::vector<std::string> &args, const environment &variables,
                        rights held) {
  const temp_dir dir;
  const pid_t pid = start(args, variables, dir / "out", dir / "err", held);
  const int status = wait_for_end(pid);
  return {status, read_bytes(dir / "out"), read_bytes(dir / "err")};
}

}  // namespace

finished run_zotconf(const std::vector<std::string> &args, const environment &variables) {
  return run_to_its_end(args, variables, rights::of_the_test);
}

finished run_zotconf_as_user(const std::vector<std::string> &args, const environment &variables) {
  return run_to_its_end(args, variables, rights::of_a_user);
}

background::background(const std::vector<std::string> &args, const environment &variables) {
  write_bytes(dir_ / "out", "");
  write_bytes(dir_ / "err", "");
  pid_ = start(args, variables, dir_ / "out", dir_ / "err");
}

background::~background() {
  if (pid_ > 0) {
    send(SIGKILL);
    wait();
  }
}

std::string background::out() const {
  return read_bytes(dir_ / "out");
}

std::string background::err() const {
  return read_bytes(dir_ / "err");
}

void background::wait_for(const std::string &text, size_t times) const {
  try {
    wait_until([&] { return count_of(text, out()) >= times; }, text);
  } catch (const std::exception &error) {
    throw std::runtime_error(std::string(error.what()) + "\n" + out() + err());
  }
}

void background::send(int signal) const {
  ::kill(pid_, signal);
}

int background::wait() {
  const int status = wait_for_end(pid_);
  pid_ = -1;
  return status;
}

void wait_until(const std::function<bool()> &condition, const std::string &what) {
  const auto end = std::chrono::steady_clock::now() + 1min;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("waited in vain for " + what);
    }
    std::this_thread::sleep_for(5ms);
  }
}

size_t count_of(const std::string &part, const std::string &text) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

serving::serving(const std::string &publication, const std::vector<std::string> &more) {
  std::vector<std::string> args = {"serve", publication, "--port", "0"};
  args.insert(args.end(), more.begin(), more.end());
  write_bytes(dir_ / "out", "");
  pid_ = start(args, {}, dir_ / "out", dir_ / "err");
  for (int tries = 0; tries < 1000 && port_ == 0; ++tries) {
    std::this_thread::sleep_for(5ms);
    port_ = told_port(output());
  }
  if (port_ == 0) {
    stop(SIGKILL);
    throw std::runtime_error("the service does not listen: " + read_bytes(dir_ / "err"));
  }
}

serving::~serving() {
  if (pid_ > 0) {
    stop(SIGTERM);
  }
}

std::string serving::output() const {
  return read_bytes(dir_ / "out");
}

int serving::stop(int signal) {
  ::kill(pid_, signal);
  const int status = wait_for_end(pid_);
  pid_ = -1;
  return status;
}

finished publish(const std::string &source, const std::string &publication,
                 const std::vector<std::string> &more) {
  std::vector<std::string> args = {"publish", source,         "--out",     publication,
                                   "--index", "001122334455", "--cluster", "cluster-1"};
  args.insert(args.end(), more.begin(), more.end());
  return run_zotconf(args);
}

}  // namespace zot::test
