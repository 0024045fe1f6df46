// SPDX-License-Identifier: Apache-2.0
// Operations of a client while another one on the same folders has given a verdict since its get.
#pragma once

#include <vector>

#include "tests/faults/calls/operation.hpp"

namespace zot::test {

[[nodiscard]] std::vector<operation> operations_beside_another();

}  // namespace zot::test
