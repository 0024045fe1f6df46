// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/host/rude_service.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "tests/faults/host/host.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

// Because of unread data, close() resets the connection, so the next write of the client fails.
[[noreturn]] void serve(int listener, std::size_t bytes) {
  for (;;) {
    const descriptor connection(::accept(listener, nullptr, nullptr));
    std::array<char, 512> chunk{};
    for (std::size_t got = 0; got < bytes;) {
      const ssize_t more =
          ::read(connection.get(), chunk.data(), std::min(chunk.size(), bytes - got));
      if (more <= 0) {
        break;
      }
      got += static_cast<std::size_t>(more);
    }
    const linger at_once{1, 0};
    ::setsockopt(connection.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  }
}

}  // namespace

rude_service::rude_service(std::size_t bytes) {
  const descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *const generic = reinterpret_cast<sockaddr *>(&address);
  require(::bind(listener.get(), generic, size) == 0 && ::listen(listener.get(), 16) == 0 &&
              ::getsockname(listener.get(), generic, &size) == 0,
          "no free port");
  port_ = ntohs(address.sin_port);
  process_ = ::fork();
  if (process_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    serve(listener.get(), bytes);
  }
}

rude_service::~rude_service() {
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

}  // namespace zot::test
