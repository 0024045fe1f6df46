// SPDX-License-Identifier: Apache-2.0
// A new configuration waits for its verdict: a commit or a roll-back.
#pragma once

#include "zot_conf.h"

namespace zot {

inline constexpr uint32_t verdict_given = ZOT_CYCLE_DONE_COMMIT | ZOT_CYCLE_DONE_ROLL_BACK;

// Whether the last get brought a configuration that is neither committed nor rolled back.
bool waits_for_verdict(const zot_ctx &handle);

// Nothing waits for a verdict any more.
inline void withdraw(zot_ctx &handle) {
  handle.stat.state &= ~uint32_t{ZOT_CYCLE_NEW_CONF};
}

// Whether a verdict was given since that get: another configuration was committed or one rolled
// back, by whatever process. That the same one was committed changes nothing.
bool is_overtaken(const zot_ctx &handle);

}  // namespace zot
