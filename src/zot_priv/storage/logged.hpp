// SPDX-License-Identifier: Apache-2.0
// Commands that run with more than their log shows, removals that show themselves, and failures
// that are recorded under the name of the operation that they end.
#pragma once

#include "zot_conf.h"

namespace zot {

// As _zot_priv_system() with the text that is shown, but the shell gets the command: the same in
// place of the shell, or with limits set before it.
int run_shown_as(zot_ctx *handle, const char *command, const char *shown, int *code,
                 const char *func, long line);

// Removes a file of the cache by its directory and its name below that, and logs what it is called
// and the command. That it cannot be removed changes nothing.
void remove_shown(zot_ctx *handle, const char *root, const char *name, const char *called,
                  const char *func);

// Records what failed with the persistent directory, and why errno says.
int record_cache_failure(zot_ctx *handle, const char *func, long line, const char *what);

// Records that the scratch directory is not as the get has left it.
int record_changed_scratch(zot_ctx *handle, const char *func);

}  // namespace zot
