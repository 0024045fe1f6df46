// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/gate.hpp"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <new>
#include <stdexcept>
#include <system_error>

#include "tests/faults/calls/watched_calls.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

using steady = std::chrono::steady_clock;

// Far longer than one run takes. No call of a client may block longer.
constexpr std::chrono::seconds run_limit{300};

[[noreturn]] void fail(const char *what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// From now on, each watched call of this process and its children blocks until it is answered.
// Returns the descriptor for the answers.
int install_filter() {
  const std::vector<watched_call> &calls = watched_calls();
  std::vector<sock_filter> filter;
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
  for (const watched_call &call : calls) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call.number), 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  constexpr unsigned long flags =
      SECCOMP_FILTER_FLAG_NEW_LISTENER | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV;
  return static_cast<int>(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program));
}

// The output of the client and its commands is not needed: the result contains everything.
void silence() {
  const int null = ::open("/dev/null", O_RDWR);
  ::dup2(null, STDOUT_FILENO);
  ::dup2(null, STDERR_FILENO);
  ::close(null);
}

void begin_group() {
  ::setpgid(0, 0);
  end_with_parent();
  ::signal(SIGPIPE, SIG_DFL);
  silence();
  adopt_orphans();
}

// Kills a process group and waits until it is gone. Returns the leader's status.
int end_group(pid_t leader) {
  ::kill(-leader, SIGKILL);
  int leader_status = 0;
  for (;;) {
    int status = 0;
    const pid_t ended = ::waitpid(-leader, &status, 0);
    if (ended == leader) {
      leader_status = status;
    }
    if (ended < 0 && errno != EINTR) {
      return leader_status;
    }
  }
}

descriptor open_process(pid_t process) {
  return descriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
}

descriptor descriptor_of(pid_t process, int fd) {
  const descriptor handle = open_process(process);
  return descriptor(static_cast<int>(::syscall(SYS_pidfd_getfd, handle.get(), fd, 0)));
}

bool is_regular(int fd) {
  struct stat st {};
  return ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
}

// Does only one byte of a longer read or write. Returns false when the call cannot be cut short.
bool do_one_byte(const seccomp_notif &asked) {
  const watched_call *const call = find_call(asked.data.nr);
  if (call == nullptr || call->flow == byte_flow::neither || asked.data.args[2] < 2) {
    return false;
  }
  const auto process = static_cast<pid_t>(asked.pid);
  const descriptor fd = descriptor_of(process, static_cast<int>(asked.data.args[0]));
  char byte = 0;
  const iovec here{&byte, 1};
  const iovec there{reinterpret_cast<void *>(asked.data.args[1]), 1};
  if (call->flow == byte_flow::out) {
    return ::process_vm_readv(process, &here, 1, &there, 1, 0) == 1 &&
           ::write(fd.get(), &byte, 1) == 1;
  }
  // A read from a pipe or socket could block.
  return is_regular(fd.get()) && ::read(fd.get(), &byte, 1) == 1 &&
         ::process_vm_writev(process, &here, 1, &there, 1, 0) == 1;
}

// A close() that fails still closes the descriptor: put another file under its number.
void close_behind(int listener, const seccomp_notif &asked) {
  const descriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  seccomp_notif_addfd other{};
  other.id = asked.id;
  other.flags = SECCOMP_ADDFD_FLAG_SETFD;
  other.srcfd = static_cast<unsigned>(null.get());
  other.newfd = static_cast<unsigned>(asked.data.args[0]);
  other.newfd_flags = O_CLOEXEC;
  ::ioctl(listener, SECCOMP_IOCTL_NOTIF_ADDFD, &other);
}

class watch {
 public:
  watch(gate_page &page, const planned_fault &plan, pid_t leader,
        const std::function<void(const passed_call &)> &look)
      : page_(page), plan_(plan), leader_(leader), look_(look) {}

  gated_run run() {
    const descriptor listener = wait_for_listener();
    while (answer_next(listener.get())) {
    }
    run_.wait_status = end_group(leader_);
    return std::move(run_);
  }

 private:
  descriptor wait_for_listener() {
    constexpr useconds_t pause = 50;
    const steady::time_point limit = steady::now() + run_limit;
    while (page_.listener.load() < 0) {
      if (steady::now() > limit) {
        end_group(leader_);
        throw not_allowed("system calls cannot be watched here");
      }
      ::usleep(pause);
    }
    return descriptor_of(leader_, page_.listener.load());
  }

  // Returns false when there is nothing left to answer.
  bool answer_next(int listener) {
    using std::chrono::milliseconds;
    const auto left = std::chrono::duration_cast<milliseconds>(limit_ - steady::now());
    std::array<pollfd, 2> ready{{{listener, POLLIN, 0}, {leader_end_.get(), POLLIN, 0}}};
    const int count =
        ::poll(ready.data(), ready.size(), std::max(0, static_cast<int>(left.count())));
    if (count < 0 && errno == EINTR) {
      return true;
    }
    if (count <= 0) {
      run_.hung = true;
      return false;
    }
    if ((ready[0].revents & POLLIN) == 0) {
      return false;
    }
    // The kernel's structure may be longer than the one in this header.
    alignas(seccomp_notif) std::array<char, 512> buffer{};
    if (::ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, buffer.data()) != 0) {
      return errno == ENOENT || errno == EINTR;
    }
    return answer(listener, *std::launder(reinterpret_cast<seccomp_notif *>(buffer.data())));
  }

  bool answer(int listener, const seccomp_notif &asked) {
    seccomp_notif_resp response{};
    response.id = asked.id;
    response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    if (page_.armed.load()) {
      const passed_call call = count(asked);
      if (look_) {
        look_(call);
      }
      const bool is_planned = call.place == plan_.place || (run_.reached && plan_.lasts);
      if (is_planned && !act(listener, asked, response)) {
        return false;
      }
    }
    ::ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
    return true;
  }

  passed_call count(const seccomp_notif &asked) {
    const auto known = processes_.try_emplace(asked.pid, static_cast<unsigned>(processes_.size()));
    const unsigned process = known.first->second;
    counts_.resize(processes_.size());
    const passed_call call{
        {process, ++counts_[process]}, asked.data.nr, asked.pid, asked.data.args[0]};
    run_.calls.push_back(call);
    return call;
  }

  // Injects the planned fault. Returns false when the run ends with it.
  bool act(int listener, const seccomp_notif &asked, seccomp_notif_resp &response) {
    if (plan_.what == fault::kill) {
      run_.reached = true;
      return false;
    }
    if (plan_.what == fault::error) {
      if (asked.data.nr == SYS_close) {
        close_behind(listener, asked);
      }
      response.error = -plan_.error;
    } else if (plan_.what == fault::cut_short && do_one_byte(asked)) {
      response.val = 1;
    } else {
      return true;
    }
    response.flags = 0;
    run_.reached = true;
    return true;
  }

  gate_page &page_;
  const planned_fault plan_;
  const pid_t leader_;
  const descriptor leader_end_ = open_process(leader_);
  const std::function<void(const passed_call &)> &look_;
  const steady::time_point limit_ = steady::now() + run_limit;
  std::map<unsigned, unsigned> processes_;
  std::vector<unsigned> counts_;
  gated_run run_;
};

void clear(gate_page &page) {
  page.listener = -1;
  page.armed = false;
  page.status = 0;
  page.text[0] = '\0';
}

// Starts the leader of a new process group. It exits with the client's result.
pid_t start_leader(gate_page &page, const std::function<int()> &client) {
  clear(page);
  const pid_t leader = ::fork();
  if (leader < 0) {
    fail("fork");
  }
  if (leader == 0) {
    begin_group();
    ::_exit(client());
  }
  ::setpgid(leader, leader);
  return leader;
}

}  // namespace

shared_page::shared_page() {
  void *const memory =
      ::mmap(nullptr, sizeof(gate_page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    fail("mmap");
  }
  page_ = new (memory) gate_page;
}

shared_page::~shared_page() {
  ::munmap(page_, sizeof(gate_page));
}

void arm(gate_page &page) {
  page.armed = true;
}

void disarm(gate_page &page) {
  page.armed = false;
  while (::waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
  }
}

gated_run run_gated(gate_page &page, const planned_fault &plan, const std::function<int()> &client,
                    const std::function<void(const passed_call &)> &look) {
  const pid_t leader = start_leader(page, [&page, &client] {
    const int listener = install_filter();
    if (listener < 0) {
      return 2;
    }
    page.listener = listener;
    return client();
  });
  return watch(page, plan, leader, look).run();
}

int run_process(gate_page &page, const std::function<int()> &client) {
  const pid_t leader = start_leader(page, client);
  int status = 0;
  while (::waitpid(leader, &status, 0) < 0 && errno == EINTR) {
  }
  end_group(leader);
  return status;
}

void end_with_parent() {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
}

void adopt_orphans() {
  ::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0);
}

}  // namespace zot::test
