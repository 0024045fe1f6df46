// SPDX-License-Identifier: Apache-2.0
#include "tools/element/wake_up.hpp"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <limits>

#include "tools/files/file_io.hpp"

namespace {

static_assert(std::atomic<int>::is_always_lock_free);
std::atomic<int> stop_number = 0;
std::atomic<int> wake_fd = -1;

}  // namespace

extern "C" {

// If the pipe is full, the write fails, but the reader wakes up anyway.
static void zotconf_wake(int /*number*/) {
  const int error = errno;
  static_cast<void>(!::write(wake_fd, "", 1));
  errno = error;
}

static void zotconf_note_stop(int number) {
  stop_number = number;
  struct sigaction end {};
  end.sa_handler = SIG_DFL;
  ::sigaction(SIGINT, &end, nullptr);
  ::sigaction(SIGTERM, &end, nullptr);
  zotconf_wake(number);
}
}

namespace zotconf {
namespace {

void set_handler(int number, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  // Blocks all signals while the handler runs.
  ::sigfillset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  if (::sigaction(number, &action, nullptr) != 0) {
    throw_errno("cannot handle a signal");
  }
}

}  // namespace

wake_up::wake_up() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw_errno("cannot make a pipe");
  }
  read_end_ = zot::descriptor(ends[0]);
  write_end_ = zot::descriptor(ends[1]);
  stop_number = 0;
  wake_fd = ends[1];
  set_handler(SIGINT, zotconf_note_stop);
  set_handler(SIGTERM, zotconf_note_stop);
  set_handler(SIGCHLD, zotconf_wake);
  // The parent process may have blocked these signals.
  sigset_t awaited;
  ::sigemptyset(&awaited);
  for (const int number : {SIGINT, SIGTERM, SIGCHLD}) {
    ::sigaddset(&awaited, number);
  }
  ::sigprocmask(SIG_UNBLOCK, &awaited, nullptr);
}

wake_up::~wake_up() {
  for (const int number : {SIGINT, SIGTERM, SIGCHLD}) {
    std::signal(number, SIG_DFL);
  }
  wake_fd = -1;
}

int wake_up::stop_signal() const {
  return stop_number;
}

void wake_up::wait_until(clock::time_point when) {
  using std::chrono::milliseconds;
  if (stop_signal() != 0) {
    return;
  }
  const auto left = std::chrono::ceil<milliseconds>(when - std::min(when, clock::now())).count();
  pollfd readable{.fd = read_end_.get(), .events = POLLIN, .revents = 0};
  static_cast<void>(
      ::poll(&readable, 1,
             static_cast<int>(std::min<milliseconds::rep>(left, std::numeric_limits<int>::max()))));
  std::array<char, 64> drained{};
  while (::read(read_end_.get(), drained.data(), drained.size()) > 0) {
  }
}

}  // namespace zotconf
