// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"

namespace zot {

// Takes the configuration in force from the cache again when another process has committed one
// since. True when that was so; the slots are empty then where the cache could not be loaded.
bool reload_changed_cache(zot_ctx &handle);

}  // namespace zot
