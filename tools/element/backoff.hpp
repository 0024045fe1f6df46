// SPDX-License-Identifier: Apache-2.0
// Pauses between retries. They grow, so that a service that comes back is not overloaded, and they
// are random, so that many elements do not retry at the same time.
#pragma once

#include <algorithm>
#include <chrono>
#include <random>

namespace zotconf {

class backoff {
 public:
  using milliseconds = std::chrono::milliseconds;

  // All pauses are between `shortest` and `longest`; both must be above 0.
  backoff(milliseconds shortest, milliseconds longest, std::random_device::result_type seed)
      : shortest_(std::min(shortest, longest)), longest_(longest), random_(seed) {}

  // The first pause is between one and two times the shortest. For each next pause both bounds
  // double, until the upper bound is the longest pause.
  milliseconds next() {
    bound_ = bound_ < longest_ / 2 ? bound_ * 2 : longest_;
    const milliseconds low = std::max(shortest_, bound_ / 2);
    return milliseconds(
        std::uniform_int_distribution<milliseconds::rep>(low.count(), bound_.count())(random_));
  }

  // Starts again with the shortest pause. Call it after a success.
  void reset() { bound_ = shortest_; }

 private:
  milliseconds shortest_;
  milliseconds longest_;
  milliseconds bound_ = shortest_;
  std::mt19937 random_;
};

}  // namespace zotconf
