// SPDX-License-Identifier: Apache-2.0
// The progress of a fleet as an HTML page of one file. The page needs no script and loads itself
// again every minute.
#pragma once

#include <string>
#include <string_view>

#include "tools/fleet/rollout.hpp"

namespace zotconf {

// The page up to the end of its style.
extern const std::string_view fleet_html;

std::string rollout_page(const rollout &found, const rollout_verdict &verdict);

}  // namespace zotconf
