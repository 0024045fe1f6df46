// SPDX-License-Identifier: Apache-2.0
// `zotconf fleet`: how the publication of a fleet progresses, from the reports of its elements.
#pragma once

#include "tools/fleet/rollout_options.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

int run_fleet_status(const rollout_options &options, const console &where);

}  // namespace zotconf
