// SPDX-License-Identifier: Apache-2.0
// Runs the built zotconf program on a pseudo-terminal.
#pragma once

#include <string>
#include <vector>

#include "tests/tools/support/process.hpp"

namespace zot::test {

// Returns standard output and standard error together, as the terminal shows them.
[[nodiscard]] finished run_on_terminal(const std::vector<std::string> &args,
                                       const environment &variables = {});

}  // namespace zot::test
