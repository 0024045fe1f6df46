// SPDX-License-Identifier: Apache-2.0
// The sequences in several processes, each with the environment of an element of its own, and so
// that a crash is found and made short like a disagreement.
#pragma once

#include "check.hpp"
#include "options.hpp"

namespace zot::faults {

// False when one sequence failed; it has been printed then.
[[nodiscard]] bool run_shares(const options &wanted, tally &counts);

}  // namespace zot::faults
