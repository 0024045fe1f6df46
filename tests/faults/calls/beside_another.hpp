// SPDX-License-Identifier: Apache-2.0
// Operations of a client after another client on the same folders has committed or rolled back
// since its get.
#pragma once

#include <vector>

#include "tests/faults/calls/operation.hpp"

namespace zot::test {

// The operations of a single client, followed by those of two clients.
[[nodiscard]] std::vector<operation> all_operations();

}  // namespace zot::test
