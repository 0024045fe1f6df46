// SPDX-License-Identifier: Apache-2.0
// Whose marks the marked list has: those of the configuration in force, or of a new one that waits
// to be committed or rolled back.
#pragma once

#include "zot_conf.h"

namespace zot {

// Marks the configuration in force against itself; the list is empty when nothing is in force.
// ZOT_OK, or a recorded status.
int renew_marks(zot_ctx &handle);

// The same, when there is no list, when it belongs to a configuration that can no longer be
// committed, or when nothing is in force.
int ensure_marks(zot_ctx &handle);

}  // namespace zot
