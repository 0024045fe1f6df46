// SPDX-License-Identifier: Apache-2.0
// Rounds on a file system that has little space left, few inodes, or is read-only.
#pragma once

#include "tests/faults/relay/sweep_options.hpp"

namespace zot::test {

// Prints the counts. Returns true when all checks passed. Throws not_allowed where this user may
// mount nothing.
[[nodiscard]] bool sweep_full_stores(const sweep_options &options);

}  // namespace zot::test
