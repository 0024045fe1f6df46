// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/report_schedule.hpp"

#include <algorithm>

namespace zotconf {

report_schedule::report_schedule(const report_times &times, std::random_device::result_type seed)
    : every_(times.regular),
      random_(seed),
      backoff_(times.shortest_pause, times.longest_pause, seed) {}

report_schedule::milliseconds report_schedule::between(milliseconds low, milliseconds high) {
  return milliseconds(
      std::uniform_int_distribution<milliseconds::rep>(low.count(), high.count())(random_));
}

void report_schedule::succeed(clock::time_point now) {
  backoff_.reset();
  not_before_ = now;
  regular_ = now + between(every_ - every_ / 10, every_ + every_ / 10);
}

void report_schedule::fail(clock::time_point now,
                           const std::optional<std::chrono::seconds> &retry_after) {
  is_pending_ = true;
  milliseconds pause = backoff_.next();
  if (retry_after) {
    const milliseconds asked = *retry_after;
    pause = std::max(pause, between(asked, asked + asked / 10));
  }
  not_before_ = now + pause;
}

}  // namespace zotconf
