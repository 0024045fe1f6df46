// SPDX-License-Identifier: Apache-2.0
// Operations of a client when another client on the same folders has committed or rolled back since
// its get.
#pragma once

#include <vector>

#include "tests/faults/calls/operation.hpp"

namespace zot::test {

// Those of one client alone, and after them those beside another.
[[nodiscard]] std::vector<operation> all_operations();

}  // namespace zot::test
