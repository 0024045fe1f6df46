// SPDX-License-Identifier: Apache-2.0
// Processes with low limits: descriptors, file sizes, processes, stack.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>

#include "tests/faults/host/host.hpp"
#include "tests/faults/host/privileges.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

using limited = decltype(RLIMIT_NOFILE);

// Only the soft limit: that one can be raised again.
void set_limit(limited resource, rlim_t value) {
  rlimit now{};
  require(::getrlimit(resource, &now) == 0, "no limit");
  now.rlim_cur = std::min(value, now.rlim_max);
  require(::setrlimit(resource, &now) == 0, "no such limit");
}

void within_limit(host &h, limited resource, rlim_t value) {
  rlimit before{};
  require(::getrlimit(resource, &before) == 0, "no limit");
  static_cast<void>(h.attempt_within([&] { set_limit(resource, value); },
                                     [&] { set_limit(resource, before.rlim_cur); }));
}

void has_small_files(host &h, rlim_t bytes) {
  ::signal(SIGXFSZ, SIG_IGN);
  within_limit(h, RLIMIT_FSIZE, bytes);
}

// By default the limit is the end of a process; whatever it has written, the next one goes on.
void is_ended_by_a_large_file(host &h, rlim_t bytes) {
  const int status = in_own_process([&] {
    set_limit(RLIMIT_FSIZE, bytes);
    h.whole_cycle();
  });
  require(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ, "another end than by SIGXFSZ");
  h.recover();
}

void cannot_fork(host &h) {
  become_nobody(h.root());
  rlimit before{};
  ::getrlimit(RLIMIT_NPROC, &before);
  const std::string failure = h.attempt_within([] { set_limit(RLIMIT_NPROC, 0); },
                                               [&] { set_limit(RLIMIT_NPROC, before.rlim_cur); });
  require(failure.find("tar zxvf") != std::string::npos, "it says: " + failure);
}

// A cycle of its own for the commit, where a command is the first to fail.
void cannot_fork_to_commit(host &h) {
  become_nobody(h.root());
  rlimit before{};
  ::getrlimit(RLIMIT_NPROC, &before);
  require(h.start(), "no handle");
  h.get_whole('a');
  set_limit(RLIMIT_NPROC, 0);
  const int status = zot_conf_commit(h.handle());
  set_limit(RLIMIT_NPROC, before.rlim_cur);
  const std::string text = zot_util_get_err_str(h.handle());
  require(status == ZOT_ERR_GENERIC && text.find("cp -r") + 1 + text.find("fail to copy") + 1 > 0,
          "it says: " + text);
  h.commit_whole('a');
  h.recover();
}

void has_many_descriptors(host &h) {
  constexpr int count = 1500;
  std::vector<descriptor> open;
  for (int at = 0; at < count; ++at) {
    open.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    require(open.back().is_open(), "too few descriptors");
  }
  h.whole_cycle();
}

struct thread_work {
  host *under_test;
  std::string problem;
};

void *run_cycle(void *given) {
  auto *const work = static_cast<thread_work *>(given);
  try {
    work->under_test->whole_cycle();
  } catch (const std::exception &found) {
    work->problem = found.what();
  }
  return nullptr;
}

// Its own frames and the test's are on that stack too.
void has_a_small_thread(host &h, std::size_t bytes) {
  pthread_attr_t attributes;
  ::pthread_attr_init(&attributes);
  require(::pthread_attr_setstacksize(&attributes, bytes) == 0, "no such stack");
  thread_work work{&h, {}};
  pthread_t thread{};
  require(::pthread_create(&thread, &attributes, run_cycle, &work) == 0, "no thread");
  ::pthread_join(thread, nullptr);
  ::pthread_attr_destroy(&attributes);
  require(work.problem.empty(), work.problem);
}

void has_a_small_stack(host &h, rlim_t bytes) {
  set_limit(RLIMIT_STACK, bytes);
  h.whole_cycle();
}

}  // namespace

std::vector<situation> limit_situations() {
  std::vector<situation> all;
  for (rlim_t count = 3; count <= 16; ++count) {
    all.push_back({"at most " + std::to_string(count) + " descriptors",
                   [count](host &h) { within_limit(h, RLIMIT_NOFILE, count); }, true});
  }
  for (const rlim_t bytes : {0, 1, 64, 65, 300, 512, 600, 1024, 8999, 10240}) {
    all.push_back({"files of at most " + std::to_string(bytes) + " bytes",
                   [bytes](host &h) { has_small_files(h, bytes); }, true});
  }
  for (const rlim_t bytes : {0, 65, 300}) {
    all.push_back({"files of at most " + std::to_string(bytes) + " bytes, SIGXFSZ kills",
                   [bytes](host &h) { is_ended_by_a_large_file(h, bytes); }, true});
  }
  all.push_back({"no further process", cannot_fork});
  all.push_back({"no further process at the commit", cannot_fork_to_commit});
  all.push_back({"1,500 descriptors open", has_many_descriptors});
  for (const std::size_t kib : {128, 96}) {
    all.push_back({"a thread with a stack of " + std::to_string(kib) + " KiB",
                   [kib](host &h) { has_a_small_thread(h, kib * 1024); }});
  }
  all.push_back({"a stack of 256 KiB", [](host &h) { has_a_small_stack(h, 256 * 1024); }});
  return all;
}

}  // namespace zot::test
