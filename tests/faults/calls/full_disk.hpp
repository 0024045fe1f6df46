// SPDX-License-Identifier: Apache-2.0
// Runs each operation on a file system with little space, with few inodes, or mounted read-only.
#pragma once

#include "tests/faults/calls/call_sweep.hpp"

namespace zot::test {

// Prints its counts. True when everything held; throws where this user may mount nothing.
[[nodiscard]] bool sweep_full_disks(const sweep_options &options, const services &offered);

}  // namespace zot::test
