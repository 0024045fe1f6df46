// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/host/process_state.hpp"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>

#include "utilities/owner.hpp"

namespace zot::test {
namespace {

// SA_RESTORER: the C library sets it in every action.
constexpr int restorer = 0x04000000;

using directory_stream = std::unique_ptr<DIR, releaser<closedir>>;

std::string target_of(const std::string &link) {
  std::array<char, 4096> text{};
  const ssize_t size = ::readlink(link.c_str(), text.data(), text.size());
  return size < 0 ? std::string() : std::string(text.data(), static_cast<std::size_t>(size));
}

std::map<int, signal_state> signals_now() {
  sigset_t blocked;
  sigset_t pending;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  ::sigpending(&pending);
  std::map<int, signal_state> all;
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    if (::sigaction(number, nullptr, &action) == 0) {
      all[number] = {reinterpret_cast<std::uintptr_t>(action.sa_handler),
                     action.sa_flags & ~restorer, ::sigismember(&blocked, number) == 1,
                     ::sigismember(&pending, number) == 1};
    }
  }
  return all;
}

std::string children_now() {
  siginfo_t found{};
  if (::waitid(P_ALL, 0, &found, WEXITED | WNOHANG | WNOWAIT) != 0) {
    return "none";
  }
  return found.si_pid != 0 ? "ended and not waited for" : "running";
}

std::vector<std::string> environment_now() {
  std::vector<std::string> all;
  for (char **at = environ; at != nullptr && *at != nullptr; ++at) {
    if (!std::string_view(*at).starts_with("ZOT_REMOTE_PORT=")) {
      all.emplace_back(*at);
    }
  }
  std::ranges::sort(all);
  return all;
}

std::string umask_now() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return std::to_string(mask);
}

}  // namespace

std::map<int, std::string> descriptors_of(const std::string &process) {
  std::map<int, std::string> all;
  const std::string folder = "/proc/" + process + "/fd";
  const directory_stream directory(::opendir(folder.c_str()));
  if (directory == nullptr) {
    return all;
  }
  const int own = process == "self" ? ::dirfd(directory.get()) : -1;
  while (const dirent *const entry = ::readdir(directory.get())) {
    const std::string name = entry->d_name;
    if (name[0] != '.' && std::stoi(name) != own) {
      all.emplace(std::stoi(name), target_of(folder + "/" + name));
    }
  }
  return all;
}

process_state state_of_process() {
  process_state now;
  now.descriptors = descriptors_of();
  struct stat tasks {};
  // The link count of the directory: each thread is a subdirectory and adds one.
  now.threads = ::stat("/proc/self/task", &tasks) == 0 ? tasks.st_nlink : 0;
  now.children = children_now();
  now.signals = signals_now();
  now.directory = target_of("/proc/self/cwd");
  now.umask = umask_now();
  now.locale = std::setlocale(LC_ALL, nullptr);
  now.environment = environment_now();
  return now;
}

std::string difference(const process_state &before, const process_state &after) {
  std::string text;
  for (const auto &[fd, target] : after.descriptors) {
    const auto found = before.descriptors.find(fd);
    if (found == before.descriptors.end() || found->second != target) {
      text += "descriptor " + std::to_string(fd) + " is " + target + "; ";
    }
  }
  for (const auto &[fd, target] : before.descriptors) {
    text += after.descriptors.contains(fd) ? "" : "descriptor " + target + " is closed; ";
  }
  for (auto [number, state] : before.signals) {
    const auto found = after.signals.find(number);
    // When the host blocks SIGCHLD, a SIGCHLD from a command of the library is pending too.
    if (number == SIGCHLD && state.is_blocked && found != after.signals.end()) {
      state.is_pending = state.is_pending || found->second.is_pending;
    }
    if (found == after.signals.end() || found->second != state) {
      text += "signal " + std::to_string(number) + " is treated otherwise; ";
    }
  }
  const auto compare = [&](const std::string &what, const auto &one, const auto &other) {
    text += one == other ? "" : what + " differs; ";
  };
  compare("the number of threads", before.threads, after.threads);
  compare("children: " + before.children + ", then " + after.children + ", which", before.children,
          after.children);
  compare("the directory", before.directory, after.directory);
  compare("the umask", before.umask, after.umask);
  compare("the locale", before.locale, after.locale);
  compare("the environment", before.environment, after.environment);
  return text;
}

}  // namespace zot::test
