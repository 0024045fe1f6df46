// SPDX-License-Identifier: Apache-2.0
// One misdeed: what a relay has to do while its upstream server misbehaves, and afterwards.
#pragma once

#include <string>

#include "tests/faults/relay/misdeed.hpp"

namespace zot::test {

// Runs a relay in this process, and its server in another one. Returns what is wrong, one line
// each; empty when nothing is.
[[nodiscard]] std::string check_relay(const misdeed &tried, const cast &all, bool is_verbose);

}  // namespace zot::test
