// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/server_process.hpp"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <system_error>

namespace zot::test {
namespace {

// About the time before a change.
struct change_report {
  int port;
  unsigned requests;
  bool is_visited_elsewhere;
};

// Does what the other process requests until it closes its end.
void serve(const server_process::conduct &how, int control) {
  static_server server;
  for (std::uint64_t number = 0; ::recv(control, &number, sizeof number, 0) == sizeof number;) {
    const change_report report{.port = server.port(),
                               .requests = server.requests(),
                               .is_visited_elsewhere = server.is_visited_elsewhere()};
    server.behave(how(number));
    if (::send(control, &report, sizeof report, MSG_NOSIGNAL) != sizeof report) {
      return;
    }
  }
}

int run_server(const server_process::conduct &how, int control) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    serve(how, control);
    return 0;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "server: %s\n", problem.what());
    return 1;
  }
}

}  // namespace

server_process::server_process(const conduct &how) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  control_ = descriptor(ends[0]);
  descriptor theirs(ends[1]);
  std::fflush(nullptr);
  process_ = ::fork();
  if (process_ < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (process_ == 0) {
    control_.close();
    ::_exit(run_server(how, theirs.get()));
  }
}

server_process::~server_process() {
  control_.close();
  ::waitpid(process_, nullptr, 0);
}

std::string server_process::url(const std::string &scheme) const {
  return scheme + "://127.0.0.1:" + std::to_string(port_);
}

void server_process::behave(std::uint64_t number) {
  change_report report{};
  if (::send(control_.get(), &number, sizeof number, MSG_NOSIGNAL) != sizeof number ||
      ::recv(control_.get(), &report, sizeof report, 0) != sizeof report) {
    throw std::runtime_error("the server's process has ended");
  }
  port_ = report.port;
  requests_before_ = report.requests;
  is_visited_elsewhere_ = report.is_visited_elsewhere;
}

}  // namespace zot::test
