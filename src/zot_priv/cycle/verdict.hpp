// SPDX-License-Identifier: Apache-2.0
// A new configuration waits for its verdict: a commit or a roll-back.
#pragma once

#include "zot_conf.h"

namespace zot {

inline constexpr uint32_t verdict_given = ZOT_CYCLE_DONE_COMMIT | ZOT_CYCLE_DONE_ROLL_BACK;

// Whether the last get brought a configuration that is neither committed nor rolled back.
bool waits_for_verdict(const zot_ctx &handle);

// Whether a verdict was given since that get: another configuration was committed or one rolled
// back, by whatever process. That the same one was committed changes nothing.
bool is_overtaken(const zot_ctx &handle);

// Records what failed with the persistent directory, and why errno says.
int record_failure(zot_ctx *handle, const char *func, long line, const char *what);

// Records that the scratch directory is not as the get has left it.
int refuse_changed(zot_ctx *handle, const char *func);

}  // namespace zot
