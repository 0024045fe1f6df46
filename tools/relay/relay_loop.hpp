// SPDX-License-Identifier: Apache-2.0
// The rounds of a relay, one after the other, with their pauses, and what is told of them.
#pragma once

#include <functional>

#include "tools/relay/relay_clock.hpp"
#include "tools/relay/relay_report.hpp"
#include "tools/relay/relay_state.hpp"
#include "tools/relay/schedule.hpp"
#include "tools/relay/synchroniser.hpp"

namespace zotconf {

// What a loop works with. All of it must outlive the loop.
struct relay_parts {
  synchroniser &syncing;
  const relay_store &store;
  const upstream &server;
  relay_board &board;
  relay_reporter &reporter;
};

class relay_loop {
 public:
  explicit relay_loop(const relay_parts &parts) : parts_(parts) { describe_publication(); }

  // Does one round. Failures of the storage are those of the round.
  sync_round once();
  // Does rounds until the clock is stopped.
  void run(schedule &when, relay_clock &time);

 private:
  [[nodiscard]] sync_round synchronise();
  void describe_publication();
  void note(const sync_round &round);
  void tell(const sync_round &round, std::optional<std::chrono::milliseconds> retry);
  [[nodiscard]] relay_report update_report(const sync_round &round) const;

  const relay_parts parts_;
  bool is_first_ = true;  // no round was told yet
  bool is_failing_ = false;
};

}  // namespace zotconf
