// SPDX-License-Identifier: Apache-2.0
// Rounds that are killed, or for which a system call fails, at each of their calls.
#pragma once

#include "tests/faults/relay/sweep_options.hpp"

namespace zot::test {

// Print the counts. Return true when all checks passed.
[[nodiscard]] bool sweep_kills(const sweep_options &options);
[[nodiscard]] bool sweep_errors(const sweep_options &options);

}  // namespace zot::test
