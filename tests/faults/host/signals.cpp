// SPDX-License-Identifier: Apache-2.0
// How a host handles signals and its children.
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "src/zot_list.hpp"
#include "tests/faults/host/host.hpp"
#include "tests/faults/host/rude_service.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

constexpr const char *sigchld_lost = "No child process or no status";

void set_action(int number, void (*handler)(int), int flags = 0) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  ::sigaction(number, &action, nullptr);
}

sigset_t set_of(const std::initializer_list<int> &numbers) {
  sigset_t set;
  ::sigemptyset(&set);
  for (const int number : numbers) {
    ::sigaddset(&set, number);
  }
  return set;
}

void block(const sigset_t &set) {
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

bool is_pending(int number) {
  sigset_t pending;
  ::sigpending(&pending);
  return ::sigismember(&pending, number) == 1;
}

void ignores_sigchld(host &h) {
  set_action(SIGCHLD, SIG_IGN);
  h.whole_cycle();
}

void wants_no_zombies(host &h) {
  set_action(SIGCHLD, SIG_DFL, SA_NOCLDWAIT);
  h.whole_cycle();
}

void reap_all(int) {
  const errno_keeper keep_errno;
  while (::waitpid(-1, nullptr, WNOHANG) > 0) {
  }
}

void reaps_in_a_handler(host &h) {
  set_action(SIGCHLD, reap_all);
  h.whole_cycle();
}

void reaps_in_a_handler_of_another_thread(host &h) {
  set_action(SIGCHLD, reap_all);
  const std::jthread other([](const std::stop_token &end) {
    while (!end.stop_requested()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  h.whole_cycle();
}

// Nothing keeps such a thread from taking the status of a command. What the library then says has
// to be clear, and it goes on when it is called again.
void reaps_in_a_thread(host &h) {
  require(h.start(), "no handle");
  std::jthread reaper([](const std::stop_token &end) {
    while (!end.stop_requested()) {
      ::waitpid(-1, nullptr, 0);
    }
  });
  std::string failure;
  for (int round = 0; round < 20 && failure.empty(); ++round) {
    failure = h.attempt(round % 2 == 0 ? 'a' : 'b', round % 2 == 0 ? 'b' : 'a');
  }
  reaper.request_stop();
  reaper.join();
  require(failure.empty() || failure.find(sigchld_lost) != std::string::npos ||
              failure.find("fail to remove") != std::string::npos ||
              failure.find("still corrupted") != std::string::npos,
          failure);
  h.recover();
}

void blocks_all_signals(host &h) {
  sigset_t all;
  ::sigfillset(&all);
  block(all);
  h.whole_cycle();
}

void has_signals_pending(host &h) {
  const auto numbers = {SIGTERM, SIGHUP, SIGUSR1, SIGALRM, SIGPIPE};
  block(set_of(numbers));
  for (const int number : numbers) {
    ::raise(number);
  }
  h.whole_cycle();
  for (const int number : numbers) {
    require(is_pending(number), "a pending signal is gone");
  }
}

// As long as a command runs these two are ignored, and being ignored ends their waiting.
void has_interrupts_pending(host &h) {
  const auto numbers = {SIGINT, SIGQUIT};
  block(set_of(numbers));
  require(h.start(), "no handle");
  for (const int number : numbers) {
    ::raise(number);
  }
  require(h.get('-').status == ZOT_ERR_REMOTE_UNAVAIL, "a get without a service");
  require(is_pending(SIGINT) && is_pending(SIGQUIT), "gone without a command");
  h.get_whole('a');
  require(!is_pending(SIGINT) && !is_pending(SIGQUIT), "still waiting after a command");
  h.recover();
}

void ignores_everything(host &h) {
  for (int number = 1; number < NSIG; ++number) {
    set_action(number, SIG_IGN);
  }
  h.whole_cycle();
}

std::atomic<int> ticks = 0;

void tick(int) {
  ++ticks;
}

void interrupt_every(long microseconds) {
  const itimerval every{{0, microseconds}, {0, microseconds}};
  ::setitimer(ITIMER_REAL, &every, nullptr);
}

void is_interrupted(host &h, long microseconds) {
  set_action(SIGALRM, tick);
  interrupt_every(microseconds);
  for (int round = 0; round < 5; ++round) {
    h.whole_cycle(round % 2 == 0 ? 'a' : 'c', round % 2 == 0 ? 'b' : 'd');
  }
  interrupt_every(0);
  require(ticks > 20, "the timer didn't run");
}

void has_an_alarm(host &h) {
  ::alarm(1000);
  h.whole_cycle();
  const unsigned left = ::alarm(0);
  require(left > 900 && left <= 1000, "the host's alarm was changed");
}

// The notice of a child that ended before is there afterwards; a host with an event loop waits for
// it.
void waits_for_a_notice(host &h) {
  const sigset_t set = set_of({SIGCHLD});
  block(set);
  const descriptor notices(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  const pid_t own = ::fork();
  if (own == 0) {
    ::_exit(5);
  }
  siginfo_t found{};
  require(::waitid(P_PID, static_cast<id_t>(own), &found, WEXITED | WNOWAIT) == 0, "no child");
  require(is_pending(SIGCHLD), "no notice before");
  h.whole_cycle();
  signalfd_siginfo notice{};
  require(::read(notices.get(), &notice, sizeof notice) == sizeof notice, "the notice is gone");
  int status = 0;
  require(::waitpid(own, &status, 0) == own && WEXITSTATUS(status) == 5, "the child is gone");
}

void has_a_child_that_ends_meanwhile(host &h) {
  set_action(SIGCHLD, tick);
  const pid_t own = ::fork();
  if (own == 0) {
    ::usleep(1000);
    ::_exit(5);
  }
  require(h.start(), "no handle");
  h.get_whole('a');
  h.commit_whole('a');
  h.stop();
  int status = 0;
  require(::waitpid(own, &status, 0) == own && WEXITSTATUS(status) == 5, "the child is gone");
}

// libcurl writes a body of this size in several pieces.
void posts_to_a_closed_connection(host &h, std::size_t bytes) {
  const rude_service service(bytes);
  std::vector<remote_file_name> names(2000);
  zot_list set;
  zot_list_init(&set);
  for (remote_file_name &one : names) {
    one = {};
    std::fill_n(one.name, 600, 'n');
    list_add_tail(&set, &one.node);
  }
  const std::string url = "http://127.0.0.1:" + std::to_string(service.port()) + "/tgz";
  const std::string path = h.root() + "/archive";
  const process_state before = state_of_process();
  for (int round = 0; round < 20; ++round) {
    const int result = get_remote_file_set(url.c_str(), path.c_str(), &set, 0);
    require(result > 0, "an answer without a service: " + std::to_string(result));
  }
  const std::string text = difference(before, state_of_process());
  require(text.empty(), text);
}

void is_closed_on(host &h) {
  require(h.start(), "no handle");
  const rude_service service(10);
  ::setenv("ZOT_REMOTE_PORT", std::to_string(service.port()).c_str(), 1);
  const returned_list got = test::get(h.handle(), every_change);
  require(got.status == ZOT_ERR_REMOTE_UNAVAIL, "status " + std::to_string(got.status));
  h.recover();
}

}  // namespace

std::vector<situation> signal_situations() {
  return {
      {"SIGCHLD ignored", ignores_sigchld},
      {"SIGCHLD with SA_NOCLDWAIT", wants_no_zombies},
      {"SIGCHLD handler that waits for any child", reaps_in_a_handler},
      {"the same, in another thread", reaps_in_a_handler_of_another_thread},
      {"a thread that waits for any child", reaps_in_a_thread},
      {"a child's notice pending for an event loop", waits_for_a_notice},
      {"a child that ends during a command", has_a_child_that_ends_meanwhile},
      {"all signals blocked", blocks_all_signals},
      {"all signals ignored", ignores_everything},
      {"signals pending", has_signals_pending},
      {"SIGINT and SIGQUIT pending", has_interrupts_pending},
      {"interrupted each 3 ms", [](host &h) { is_interrupted(h, 3000); }},
      {"interrupted each 0.3 ms", [](host &h) { is_interrupted(h, 300); }},
      {"an alarm far ahead", has_an_alarm},
      {"SIGPIPE kills, service closes at once", is_closed_on},
      {"SIGPIPE kills, service closes within a request",
       [](host &h) { posts_to_a_closed_connection(h, 4096); }},
      {"SIGPIPE kills, service closes before a request",
       [](host &h) { posts_to_a_closed_connection(h, 0); }},
  };
}

}  // namespace zot::test
