// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/stop_request.hpp"

#include <cstddef>

namespace zotconf {
namespace {

constexpr std::array<int, 2> stop_signals = {SIGINT, SIGTERM};

volatile sig_atomic_t stop_has_come = 0;

void record_stop(int /*number*/) {
  stop_has_come = 1;
}

}  // namespace

stop_request::stop_request() {
  stop_has_come = 0;
  struct sigaction action {};
  action.sa_handler = record_stop;
  // A second signal ends the process at once.
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (size_t at = 0; at < stop_signals.size(); ++at) {
    ::sigaction(stop_signals[at], &action, &before_[at]);
  }
}

stop_request::~stop_request() {
  for (size_t at = 0; at < stop_signals.size(); ++at) {
    ::sigaction(stop_signals[at], &before_[at], nullptr);
  }
}

bool stop_request::has_come() {
  return stop_has_come != 0;
}

void stop_request::expect_none() {
  if (has_come()) {
    throw stopped_by_signal();
  }
}

}  // namespace zotconf
