// SPDX-License-Identifier: Apache-2.0
// Every row of the tables against a relay.
#pragma once

#include "tests/faults/relay/sweep_options.hpp"

namespace zot::test {

// Prints the counts. Returns true when all checks passed.
[[nodiscard]] bool sweep_misdeeds(const sweep_options &options);

}  // namespace zot::test
