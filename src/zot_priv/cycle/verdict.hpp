// SPDX-License-Identifier: Apache-2.0
// The verdict on a new configuration: a commit or a rollback.
#pragma once

#include "zot_conf.h"

namespace zot {

inline constexpr uint32_t verdict_given = ZOT_CYCLE_DONE_COMMIT | ZOT_CYCLE_DONE_ROLL_BACK;

// Whether the last get brought a configuration that is not yet committed or rolled back.
bool waits_for_verdict(const zot_ctx &handle);

// Records that nothing waits for a verdict any more.
inline void withdraw(zot_ctx &handle) {
  handle.stat.state &= ~uint32_t{ZOT_CYCLE_NEW_CONF};
}

// Whether any process has given a verdict since that get: it committed another configuration or
// rolled one back. A commit of the same configuration does not count.
bool is_overtaken(const zot_ctx &handle);

}  // namespace zot
