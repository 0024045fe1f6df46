// SPDX-License-Identifier: Apache-2.0
// The progress of a fleet as text.
#pragma once

#include "tools/fleet/rollout.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

void print_rollout(const console &where, const rollout &found, const rollout_verdict &verdict);

}  // namespace zotconf
