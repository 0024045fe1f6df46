// SPDX-License-Identifier: Apache-2.0
// What becomes of a commit that did not come to its end.
#pragma once

#include "zot_conf.h"

namespace zot {

// Puts back the configuration that an interrupted commit was about to replace. Nothing happens
// while another process holds the cache.
void undo_interrupted_commit(zot_ctx &handle);

// Removes undo folders that are of no use, unless another process holds the cache.
void remove_commit_leftovers(zot_ctx &handle);

// Takes back the failed commit of this handle, in memory and in the cache. False, with errno, when
// the files could not be put back; that is tried again by whoever uses the cache next.
bool undo_failed_commit(zot_ctx &handle);

}  // namespace zot
