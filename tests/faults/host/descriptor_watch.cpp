// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/host/descriptor_watch.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <stdexcept>

#include "tests/faults/host/host.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

constexpr std::size_t text_size = 4096;
constexpr int call_stop = SIGTRAP | 0x80;

[[noreturn]] void run_watched(const std::function<void()> &work, char *text) {
  ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  ::raise(SIGSTOP);
  try {
    work();
  } catch (const std::exception &problem) {
    std::snprintf(text, text_size, "%s", problem.what());
  }
  ::_exit(0);
}

bool is_inheritable(pid_t process, int fd) {
  std::ifstream info("/proc/" + std::to_string(process) + "/fdinfo/" + std::to_string(fd));
  for (std::string word; info >> word;) {
    if (word == "flags:") {
      unsigned long flags = 0;
      info >> std::oct >> flags;
      return (flags & O_CLOEXEC) == 0;
    }
  }
  // Closed in the meantime, so it was not inherited.
  return false;
}

bool is_connection(pid_t process, int fd) {
  const descriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
  const descriptor same(static_cast<int>(::syscall(SYS_pidfd_getfd, handle.get(), fd, 0)));
  int domain = 0;
  socklen_t size = sizeof domain;
  return ::getsockopt(same.get(), SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_INET;
}

std::string kind_of(pid_t process, int fd, const std::string &target) {
  if (!target.starts_with("socket:")) {
    return target;
  }
  return is_connection(process, fd) ? "connection" : watched_descriptors::socket_pair;
}

class look_out {
 public:
  explicit look_out(pid_t process)
      : process_(process), before_(descriptors_of(std::to_string(process))) {}

  void look(watched_descriptors &found) const {
    ++found.looks;
    for (const auto &[fd, target] : descriptors_of(std::to_string(process_))) {
      if (const auto known = before_.find(fd); known != before_.end() && known->second == target) {
        continue;
      }
      const std::string kind = kind_of(process_, fd, target);
      found.all.insert(kind);
      if (is_inheritable(process_, fd)) {
        found.inheritable.insert(kind);
      }
      if (fd <= STDERR_FILENO && target != "/dev/null") {
        found.standard.insert(std::to_string(fd) + " " + kind);
      }
    }
  }

 private:
  pid_t process_;
  std::map<int, std::string> before_;
};

void follow(pid_t process, watched_descriptors &found) {
  int status = 0;
  ::waitpid(process, &status, 0);
  require(WIFSTOPPED(status), "the process cannot be traced");
  ::ptrace(PTRACE_SETOPTIONS, process, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  const look_out from(process);
  int signal = 0;
  for (;;) {
    ::ptrace(PTRACE_SYSCALL, process, nullptr, signal);
    if (::waitpid(process, &status, 0) != process || !WIFSTOPPED(status)) {
      break;
    }
    signal = WSTOPSIG(status) == call_stop ? 0 : WSTOPSIG(status);
    if (signal == 0) {
      from.look(found);
    }
  }
  require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the watched process didn't end well");
}

}  // namespace

watched_descriptors watch_descriptors(const std::function<void()> &work) {
  void *const memory =
      ::mmap(nullptr, text_size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  require(memory != MAP_FAILED, "no shared memory");
  auto *const text = static_cast<char *>(memory);
  std::fflush(nullptr);
  const pid_t process = ::fork();
  if (process == 0) {
    run_watched(work, text);
  }
  watched_descriptors found;
  follow(process, found);
  const std::string problem = text;
  ::munmap(memory, text_size);
  require(problem.empty(), problem);
  return found;
}

}  // namespace zot::test
