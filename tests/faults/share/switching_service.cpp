// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/share/switching_service.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <thread>

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/stage.hpp"
#include "tests/support/service.hpp"

namespace zot::test {
namespace {

[[noreturn]] void serve(const board &told, int report) {
  constexpr std::chrono::milliseconds pause{1};
  service running;
  unsigned published = told.publications;
  running.publish(configuration(published_letter(published)));
  const std::uint16_t port = running.port();
  static_cast<void>(::write(report, &port, sizeof port));
  ::close(report);
  for (;;) {
    if (const unsigned now = told.publications; now != published) {
      published = now;
      running.publish(configuration(published_letter(now)));
      running.clear_requests();
    }
    std::this_thread::sleep_for(pause);
  }
}

}  // namespace

switching_service::switching_service(const board &told) {
  std::array<int, 2> report{};
  if (::pipe2(report.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  process_ = ::fork();
  if (process_ == 0) {
    ::close(report[0]);
    end_with_parent();
    try {
      serve(told, report[1]);
    } catch (const std::exception &) {
      ::_exit(1);
    }
  }
  ::close(report[1]);
  const bool has_port = ::read(report[0], &port_, sizeof port_) == sizeof port_;
  ::close(report[0]);
  if (!has_port) {
    throw std::runtime_error("the service doesn't start");
  }
}

switching_service::~switching_service() {
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

}  // namespace zot::test
