// SPDX-License-Identifier: Apache-2.0
// usage: faults_host [every=N] [only=TEXT] [told]
// Runs whole cycles in processes in unusual situations. Prints what held; exits with 0 when
// everything did.
//
//   every=N    run only every Nth situation
//   only=TEXT  run only situations whose name contains TEXT
//   told       print the name of each situation when it starts
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/faults/host/command_spy.hpp"
#include "tests/faults/host/host.hpp"

namespace {
using namespace zot::test;

// Far above what one situation takes.
constexpr std::chrono::seconds situation_limit{120};

struct wishes {
  std::size_t every = 1;
  std::string only;
  bool told = false;
};

wishes parse(int argc, char **argv) {
  wishes all;
  for (int at = 1; at < argc; ++at) {
    const std::string word = argv[at];
    const std::string value = word.substr(word.find('=') + 1);
    if (word.starts_with("every=")) {
      all.every = std::stoul(value);
    } else if (word.starts_with("only=")) {
      all.only = value;
    } else if (word == "told") {
      all.told = true;
    } else {
      throw std::invalid_argument("unknown: " + word);
    }
  }
  return all;
}

std::vector<situation> all_situations() {
  std::vector<situation> all;
  for (const auto &group : {signal_situations, stream_situations, place_situations, root_situations,
                            limit_situations, environment_situations, descriptor_situations}) {
    std::vector<situation> some = group();
    all.insert(all.end(), std::make_move_iterator(some.begin()),
               std::make_move_iterator(some.end()));
  }
  return all;
}

// A process begins with nothing on standard input and with its output in a file.
void begin(const std::string &output) {
  ::setpgid(0, 0);
  ::signal(SIGPIPE, SIG_DFL);
  ::umask(022);
  const int in = ::open("/dev/null", O_RDONLY);
  const int out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  ::dup2(in, STDIN_FILENO);
  ::dup2(out, STDOUT_FILENO);
  ::dup2(out, STDERR_FILENO);
  for (int fd = STDERR_FILENO + 1; fd < 1024; ++fd) {
    ::close(fd);
  }
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
  ::setrlimit(RLIMIT_NOFILE, &files);
}

// Waits for a process that may hang; false when it had to be ended.
bool wait_for(pid_t process, int &status) {
  const auto end = std::chrono::steady_clock::now() + situation_limit;
  while (std::chrono::steady_clock::now() < end) {
    if (::waitpid(process, &status, WNOHANG) == process) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ::kill(-process, SIGKILL);
  ::waitpid(process, &status, 0);
  return false;
}

// What is wrong, empty when nothing is.
std::string try_one(const situation &one, const services &offered) {
  const temp_dir work;
  const std::string output = work / "output";
  const std::string report = work / "report";
  std::fflush(nullptr);
  const pid_t process = ::fork();
  if (process == 0) {
    begin(output);
    const int told =
        ::fcntl(::open(report.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666), F_DUPFD_CLOEXEC, 900);
    ::close(STDERR_FILENO + 1);
    std::string problem;
    try {
      host under_test(work / "e", offered);
      one.run(under_test);
    } catch (const std::exception &found) {
      problem = found.what();
    }
    static_cast<void>(::write(told, problem.data(), problem.size()));
    ::_exit(0);
  }
  int status = 0;
  if (!wait_for(process, status)) {
    return "it hangs";
  }
  if (status != 0) {
    return "it ended with the wait status " + std::to_string(status);
  }
  std::string problem = read_bytes(report);
  if (const std::string printed = read_bytes(output);
      problem.empty() && !one.may_print && !printed.empty()) {
    problem = "printed: " + printed;
  }
  return problem;
}

bool run_all(const wishes &wanted) {
  const services offered;
  const std::vector<situation> all = all_situations();
  std::size_t tried = 0;
  std::size_t held = 0;
  for (std::size_t at = 0; at < all.size(); at += wanted.every) {
    const situation &one = all[at];
    if (one.name.find(wanted.only) == std::string::npos) {
      continue;
    }
    if (one.is_possible != nullptr && !one.is_possible()) {
      std::printf("left out, this machine doesn't allow it: %s\n", one.name.c_str());
      continue;
    }
    ++tried;
    if (wanted.told) {
      std::fprintf(stderr, "%s\n", one.name.c_str());
    }
    if (const std::string problem = try_one(one, offered); problem.empty()) {
      ++held;
    } else {
      std::printf("%s: %s\n", one.name.c_str(), problem.c_str());
    }
  }
  std::printf("host: %zu situations of a process: %zu held\n", tried, held);
  return tried > 0 && held == tried;
}

}  // namespace

int main(int argc, char **argv) {
  if (is_spied_command(argv[0])) {
    return report_and_run(argv);
  }
  try {
    const wishes wanted = parse(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    if (::access("/dev/shm", W_OK) == 0) {
      ::setenv("TMPDIR", "/dev/shm", 1);
    }
    return run_all(wanted) ? 0 : 1;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 2;
  }
}
