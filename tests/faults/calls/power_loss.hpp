// SPDX-License-Identifier: Apache-2.0
// Tries the possible contents of the medium after a power loss: each intermediate state of an
// operation, with any part of the unsynchronised data lost.
#pragma once

#include "tests/faults/calls/call_sweep.hpp"

namespace zot::test {

// Prints its counts. Returns true when every check passed.
[[nodiscard]] bool sweep_power_losses(const sweep_options &options, const services &offered);

}  // namespace zot::test
