// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"

namespace zot {

// Takes the configuration in force from the cache again when another process has committed one
// since, and returns true. One that cannot be loaded changes nothing.
bool reload_changed_cache(zot_ctx &handle);

// Lets the next get load the cache anew, as the first one did.
void forget_conf(zot_ctx &handle);

}  // namespace zot
