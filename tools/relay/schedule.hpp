// SPDX-License-Identifier: Apache-2.0
// When a relay asks its upstream server. The pauses are random, so that the elements of a fleet do
// not ask at the same time, also after a power cut that has restarted all of them at once.
#pragma once

#include <chrono>
#include <optional>
#include <random>

#include "tools/element/backoff.hpp"
#include "tools/relay/synchroniser.hpp"

namespace zotconf {

class schedule {
 public:
  using milliseconds = std::chrono::milliseconds;

  // The jitter is a percentage, up to 100.
  schedule(milliseconds every, std::random_device::result_type seed, unsigned jitter = 10);

  // Before the first round: up to `every`. Without jitter: none.
  [[nodiscard]] milliseconds first();
  // After a round. After a success: `every`, more or less by the jitter. After a failure the pauses
  // grow as those of a backoff, and are at least as long as the server asks for.
  [[nodiscard]] milliseconds after(const sync_round &round);

 private:
  [[nodiscard]] milliseconds between(milliseconds low, milliseconds high);

  milliseconds every_;
  milliseconds jitter_;
  std::mt19937 random_;
  backoff backoff_;
};

}  // namespace zotconf
