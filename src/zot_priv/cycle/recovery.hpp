// SPDX-License-Identifier: Apache-2.0
// What happens to a commit that did not finish.
#pragma once

#include "zot_conf.h"

namespace zot {

// Restores the configuration that an interrupted commit was about to replace. Does nothing while
// another process holds the lock of the cache.
void undo_interrupted_commit(zot_ctx &handle);

// Removes undo folders that are no longer needed, unless another process holds the lock of the
// cache.
void remove_commit_leftovers(zot_ctx &handle);

// Undoes the failed commit of this handle, in memory and in the cache. Returns false with errno if
// the files could not be restored; whoever uses the cache next tries again.
bool undo_failed_commit(zot_ctx &handle);

}  // namespace zot
