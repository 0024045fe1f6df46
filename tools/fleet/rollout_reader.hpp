// SPDX-License-Identifier: Apache-2.0
// Reads a publication folder and the reports of its elements. It changes nothing and holds one K
// and one report at a time. Both folders may change meanwhile.
#pragma once

#include <ctime>

#include "tools/fleet/rollout.hpp"
#include "tools/fleet/rollout_options.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

// Reports are at REPORTS/SUBSYS/INDEX.json. Throws std::runtime_error if a folder cannot be read,
// or if there is no K, or none with the config ID of the options.
rollout read_rollout(const rollout_options &options, const console &where, std::time_t now);

}  // namespace zotconf
