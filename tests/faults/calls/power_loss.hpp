// SPDX-License-Identifier: Apache-2.0
// What the medium may hold after a loss of power: each state that an operation passes, and what
// becomes of it when data that was not synchronised is lost.
#pragma once

#include "tests/faults/calls/call_sweep.hpp"

namespace zot::test {

// Prints its counts. True when everything held.
[[nodiscard]] bool sweep_power_losses(const sweep_options &options, const services &offered);

}  // namespace zot::test
