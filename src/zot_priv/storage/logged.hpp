// SPDX-License-Identifier: Apache-2.0
// Commands whose log entry omits a part, removals that are logged, and failures that are recorded
// under the name of the operation that they end.
#pragma once

#include "zot_conf.h"

namespace zot {

// As _zot_priv_system(), but the log shows `shown` while the shell runs `command`: the same with
// exec before it, or with limits set first.
int run_shown_as(zot_ctx *handle, const char *command, const char *shown, int *code,
                 const char *func, long line);

// Removes the file `name` below `root` in the cache, and logs the removal of `called` and the
// command. A failure to remove it changes nothing.
void remove_shown(zot_ctx *handle, const char *root, const char *name, const char *called,
                  const char *func);

// Records that `what` failed on the persistent directory, with the reason in errno.
int record_cache_failure(zot_ctx *handle, const char *func, long line, const char *what);

// Records that the scratch directory is not as the get left it.
int record_changed_scratch(zot_ctx *handle, const char *func);

}  // namespace zot
