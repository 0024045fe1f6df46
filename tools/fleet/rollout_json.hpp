// SPDX-License-Identifier: Apache-2.0
// The progress of a fleet as JSON. docs/json.md lists the keys.
#pragma once

#include "tools/fleet/rollout.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

void write_rollout_json(const console &where, const rollout &found, const rollout_verdict &verdict);

}  // namespace zotconf
