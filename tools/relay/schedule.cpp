// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/schedule.hpp"

#include <algorithm>

namespace zotconf {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds shortest_pause = 1s;
constexpr std::chrono::milliseconds longest_pause = 5min;

}  // namespace

schedule::schedule(milliseconds every, std::random_device::result_type seed, unsigned jitter)
    : every_(every),
      jitter_(every * jitter / 100),
      random_(seed),
      backoff_(shortest_pause, std::max(longest_pause, every), seed) {}

schedule::milliseconds schedule::between(milliseconds low, milliseconds high) {
  return milliseconds(
      std::uniform_int_distribution<milliseconds::rep>(low.count(), high.count())(random_));
}

schedule::milliseconds schedule::first() {
  return jitter_ == 0ms ? 0ms : between(0ms, every_);
}

schedule::milliseconds schedule::after(const sync_round &round) {
  if (is_good(round) || round.has_progressed) {
    backoff_.reset();
  }
  if (is_good(round)) {
    return between(every_ - jitter_, every_ + jitter_);
  }
  const milliseconds pause = backoff_.next();
  if (!round.retry_after) {
    return pause;
  }
  // The servers of a fleet ask all of it to come back at the same time.
  const milliseconds asked = *round.retry_after;
  return std::max(pause, between(asked, asked + std::min(asked / 2, every_)));
}

}  // namespace zotconf
