// SPDX-License-Identifier: Apache-2.0
// Runs the sequences in several processes, each with the environment of its own element. So a crash
// is detected, and its sequence shortened, in the same way as a disagreement.
#pragma once

#include "check.hpp"
#include "options.hpp"

namespace zot::faults {

// Returns false when a sequence failed, after printing it.
[[nodiscard]] bool run_shares(const options &wanted, tally &counts);

}  // namespace zot::faults
