// SPDX-License-Identifier: Apache-2.0
// What ends a wait: a signal to stop, the end of a child, or the time.
#pragma once

#include <chrono>

#include "utilities/owner.hpp"

namespace zotconf {

// While it lives, SIGINT and SIGTERM are noted instead of ending the process; once one is noted the
// next one ends the process, wherever it stands. At most one object at a time.
class wake_up {
 public:
  using clock = std::chrono::steady_clock;

  wake_up();
  wake_up(const wake_up &) = delete;
  wake_up &operator=(const wake_up &) = delete;
  ~wake_up();

  // The signal that asked to stop, 0 while none did.
  [[nodiscard]] int stop_signal() const;

  // Returns at the time, or earlier when something happened since the last call. A request to stop
  // goes on counting as something.
  void wait_until(clock::time_point when);

 private:
  zot::descriptor read_end_{-1};
  zot::descriptor write_end_{-1};
};

}  // namespace zotconf
