// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/service/trial.hpp"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>

#include "tests/faults/service/bad_server.hpp"
#include "tests/faults/service/configurations.hpp"
#include "tests/faults/service/element_check.hpp"
#include "tests/faults/service/phase.hpp"

namespace zot::test {
namespace {

constexpr const char *request_names[] = {"checksum", "K", "archive"};

// Does what the element's process requests until that process ends.
void steer(bad_server &server, const trial &tried, int control) {
  for (phase wanted{}; ::recv(control, &wanted, sizeof wanted, 0) == sizeof wanted;) {
    const phase_report report{.port = server.port(),
                              .connections = server.connections(),
                              .is_visited_elsewhere = server.is_visited_elsewhere()};
    switch (wanted) {
      case phase::first:
        server.serve(first_configuration());
        break;
      case phase::bad: {
        publication published = second_configuration();
        if (tried.what->k_text.has_value()) {
          published.set_k_text(*tried.what->k_text);
        }
        server.misbehave(*tried.what, tried.at, std::move(published));
        break;
      }
      case phase::third:
        server.serve(third_configuration());
        break;
    }
    if (::send(control, &report, sizeof report, MSG_NOSIGNAL) != sizeof report) {
      return;
    }
  }
}

int run_element(const trial &tried, int control, bool is_verbose) {
  try {
    const std::string trouble = check_element(*tried.what, tried.at, control, is_verbose);
    if (trouble.empty()) {
      return 0;
    }
    std::fprintf(stderr, "%s:\n%s", tried.name().c_str(), trouble.c_str());
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s:\n  %s\n", tried.name().c_str(), problem.what());
  }
  return 1;
}

}  // namespace

std::string trial::name() const {
  return "at the " + std::string(request_names[static_cast<unsigned>(at)]) + " it " + what->name;
}

bool run_trial(const trial &tried, bool is_verbose) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  descriptor ours(ends[0]);
  descriptor theirs(ends[1]);
  std::fflush(nullptr);
  // Forked before the service starts, so that its memory does not count as the element's.
  const pid_t child = ::fork();
  if (child == 0) {
    ours.close();
    ::_exit(run_element(tried, theirs.get(), is_verbose));
  }
  theirs.close();
  bad_server server;
  steer(server, tried, ours.get());
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child) {
    throw std::system_error(errno, std::generic_category(), "no element");
  }
  if (WIFSIGNALED(status)) {
    std::fprintf(stderr, "%s:\n  ended by signal %d\n", tried.name().c_str(), WTERMSIG(status));
  }
  return status == 0;
}

}  // namespace zot::test
