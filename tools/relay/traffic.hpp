// SPDX-License-Identifier: Apache-2.0
// What all transfers of an upstream bring together: whether it keeps to a rate, and whether it is
// worth waiting for.
#pragma once

#include <chrono>
#include <cstdint>

namespace zotconf {

class traffic {
 public:
  using clock = std::chrono::steady_clock;

  // A rate of 0 is no limit.
  traffic(uint64_t limit_rate, std::chrono::milliseconds patience);

  // Bytes have arrived.
  void count(uint64_t bytes, clock::time_point now);
  // The wait begins anew: a request was sent, a transfer has ended, or none is waiting.
  void restart_wait(clock::time_point now);
  // For so long nothing was read, on purpose.
  void exclude_from_wait(clock::duration pause);

  // How long to read nothing so that the rate is kept.
  [[nodiscard]] clock::duration ahead(clock::time_point now) const;
  // Whether less than 1 KiB/s has arrived for so long that the transfers have to end.
  [[nodiscard]] bool is_too_slow(clock::time_point now);
  // Bytes since the wait began.
  [[nodiscard]] uint64_t bytes_of_wait() const { return bytes_of_wait_; }

 private:
  uint64_t limit_rate_;
  clock::duration patience_;
  clock::time_point free_at_;  // when reading keeps to the rate again
  clock::time_point wait_begin_;
  uint64_t bytes_of_wait_ = 0;
};

}  // namespace zotconf
