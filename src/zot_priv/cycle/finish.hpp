// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"

namespace zot {

// Whether the last get brought a configuration that is neither committed nor rolled back.
bool waits_for_verdict(const zot_ctx &handle);

// Whether a verdict was given since that get: another configuration was committed or one rolled
// back, by whatever process. That the same one was committed changes nothing.
bool is_overtaken(const zot_ctx &handle);

// Records that the scratch directory is not as the get has left it.
int refuse_changed(zot_ctx *handle, const char *func);

// Before anything else is asked for: finishes a commit of this handle that failed, as the client
// wanted, so that nothing is downloaded that is there. A commit that fails once more is undone, in
// memory too. ZOT_OK, or the status of a cache that cannot be had.
int settle_failed_commit(zot_ctx &handle);

}  // namespace zot
