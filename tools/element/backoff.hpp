// SPDX-License-Identifier: Apache-2.0
// Pauses between the attempts at something that fails. They grow, so that a service that is down is
// not run over when it comes back, and differ by chance, so that many elements do not ask at once.
#pragma once

#include <algorithm>
#include <chrono>
#include <random>

namespace zotconf {

class backoff {
 public:
  using milliseconds = std::chrono::milliseconds;

  // Pauses lie between `shortest` and `longest`, both above 0.
  backoff(milliseconds shortest, milliseconds longest, std::random_device::result_type seed)
      : shortest_(std::min(shortest, longest)), longest_(longest), random_(seed) {}

  // The first pause lies between once and twice the shortest one, each next one between the bounds
  // doubled, until the upper bound is the longest one.
  milliseconds next() {
    bound_ = bound_ < longest_ / 2 ? bound_ * 2 : longest_;
    const milliseconds low = std::max(shortest_, bound_ / 2);
    return milliseconds(
        std::uniform_int_distribution<milliseconds::rep>(low.count(), bound_.count())(random_));
  }

  // After a success.
  void reset() { bound_ = shortest_; }

 private:
  milliseconds shortest_;
  milliseconds longest_;
  milliseconds bound_ = shortest_;
  std::mt19937 random_;
};

}  // namespace zotconf
