// SPDX-License-Identifier: Apache-2.0
// The possible contents of the medium after a power loss: each state that an operation passes, with
// any part of the data lost that was not synchronised.
#pragma once

#include "tests/faults/calls/call_sweep.hpp"

namespace zot::test {

// Prints its counts. True when everything held.
[[nodiscard]] bool sweep_power_losses(const sweep_options &options, const services &offered);

}  // namespace zot::test
