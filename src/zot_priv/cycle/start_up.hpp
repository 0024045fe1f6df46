// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "zot_conf.h"

namespace zot {

inline constexpr uint32_t conf_loaded = ZOT_LOADED_CONF | ZOT_LOADED_CONF_GPB;

// Loads the K that an earlier process rolled back, once per handle, and logs if there is none.
// Returns the status of the load, or nothing if there was nothing to load.
std::optional<int> load_corrupted_once(zot_ctx &handle, const char *func);

}  // namespace zot
