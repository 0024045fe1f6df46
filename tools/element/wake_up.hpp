// SPDX-License-Identifier: Apache-2.0
// Waits for a signal to stop, the end of a child, or a time.
#pragma once

#include <chrono>

#include "utilities/owner.hpp"

namespace zotconf {

// While an object exists, SIGINT and SIGTERM are recorded and do not end the process. After one is
// recorded, the next one ends the process at once. Only one object may exist at a time.
class wake_up {
 public:
  using clock = std::chrono::steady_clock;

  wake_up();
  wake_up(const wake_up &) = delete;
  wake_up &operator=(const wake_up &) = delete;
  ~wake_up();

  // The signal that requested the stop; 0 if none did.
  [[nodiscard]] int stop_signal() const;

  // Returns at `when`, or earlier when a signal has arrived since the last call. After a request to
  // stop it always returns at once.
  void wait_until(clock::time_point when);

 private:
  zot::descriptor read_end_{-1};
  zot::descriptor write_end_{-1};
};

}  // namespace zotconf
