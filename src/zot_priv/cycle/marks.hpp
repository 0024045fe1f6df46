// SPDX-License-Identifier: Apache-2.0
// Which configuration the marked list belongs to: the one in force, or a new one that waits to be
// committed or rolled back.
#pragma once

#include "zot_conf.h"

namespace zot {

// Rebuilds the marked list from the configuration in force, compared with itself. The list is empty
// if nothing is in force. Returns ZOT_OK or a recorded status.
int renew_marks(zot_ctx &handle);

// Rebuilds the list only if there is none, if it belongs to a configuration that can no longer be
// committed, or if nothing is in force.
int ensure_marks(zot_ctx &handle);

}  // namespace zot
