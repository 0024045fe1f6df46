// SPDX-License-Identifier: Apache-2.0
// When a report is sent: after a change, and once a day. All pauses are random, so that the
// elements of a fleet do not report at the same time.
#pragma once

#include <chrono>
#include <optional>
#include <random>

#include "tools/element/backoff.hpp"

namespace zotconf {

struct report_times {
  std::chrono::milliseconds regular = std::chrono::hours(24);  // more or less by a tenth
  std::chrono::milliseconds shortest_pause = std::chrono::minutes(1);
  std::chrono::milliseconds longest_pause = std::chrono::hours(1);
  std::chrono::milliseconds connect_timeout = std::chrono::seconds(10);
  std::chrono::milliseconds whole_timeout = std::chrono::minutes(1);  // of one request
};

class report_schedule {
 public:
  using clock = std::chrono::steady_clock;
  using milliseconds = std::chrono::milliseconds;

  report_schedule(const report_times &times, std::random_device::result_type seed);

  // There is something new to report.
  void change() { is_pending_ = true; }
  [[nodiscard]] bool is_pending() const { return is_pending_; }
  // When the next attempt begins.
  [[nodiscard]] clock::time_point due() const { return is_pending_ ? not_before_ : regular_; }

  // An attempt has begun, so what changes from now on is new again.
  void begin() { is_pending_ = false; }
  void succeed(clock::time_point now);
  // The pauses grow, and are at least as long as the receiver asks for.
  void fail(clock::time_point now, const std::optional<std::chrono::seconds> &retry_after);

 private:
  [[nodiscard]] milliseconds between(milliseconds low, milliseconds high);

  milliseconds every_;
  std::mt19937 random_;
  backoff backoff_;
  bool is_pending_ = false;
  clock::time_point not_before_ = clock::time_point::min();
  clock::time_point regular_ = clock::time_point::max();
};

}  // namespace zotconf
