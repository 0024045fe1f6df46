// SPDX-License-Identifier: Apache-2.0
// The state of a relay as JSON. docs/json.md lists the keys.
#pragma once

#include <ctime>

#include "tools/output/json.hpp"
#include "tools/relay/relay_state.hpp"
#include "tools/service/element_log.hpp"

namespace zotconf {

void describe_relay(json_node into, const relay_state &state, const element_log &log,
                    std::time_t now);

}  // namespace zotconf
