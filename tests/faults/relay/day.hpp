// SPDX-License-Identifier: Apache-2.0
// A day of rounds, without its pauses.
#pragma once

#include "tests/faults/relay/sweep_options.hpp"

namespace zot::test {

// Prints the counts. Returns true when all checks passed: the process takes no more memory and no
// more descriptors in the end than in the beginning, and its store has no more files.
[[nodiscard]] bool simulate_day(const sweep_options &options);

}  // namespace zot::test
