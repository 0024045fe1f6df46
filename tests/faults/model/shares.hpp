// SPDX-License-Identifier: Apache-2.0
// Runs the sequences in several processes, each with the environment of its own element. A crash is
// therefore detected, and its sequence shortened, like a disagreement.
#pragma once

#include "check.hpp"
#include "options.hpp"

namespace zot::faults {

// False when one sequence failed; it has been printed then.
[[nodiscard]] bool run_shares(const options &wanted, tally &counts);

}  // namespace zot::faults
