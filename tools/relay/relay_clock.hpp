// SPDX-License-Identifier: Apache-2.0
// The time of a relay's loop.
#pragma once

#include <chrono>

namespace zotconf {

class relay_clock {
 public:
  using clock = std::chrono::steady_clock;

  relay_clock() = default;
  relay_clock(const relay_clock &) = delete;
  relay_clock &operator=(const relay_clock &) = delete;
  virtual ~relay_clock() = default;

  [[nodiscard]] virtual clock::time_point now() const = 0;
  // Returns at `when`, or earlier for any reason.
  virtual void wait_until(clock::time_point when) = 0;
  // Whether the loop is asked to end.
  [[nodiscard]] virtual bool is_stopped() const = 0;
};

}  // namespace zotconf
