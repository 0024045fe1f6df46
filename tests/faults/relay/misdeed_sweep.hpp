// SPDX-License-Identifier: Apache-2.0
// Every row of the tables against a relay.
#pragma once

#include <cstddef>
#include <string>

namespace zot::test {

struct sweep_options {
  std::size_t every = 1;  // run only every Nth trial
  std::size_t jobs = 4;   // in parallel
  std::string only = {};  // trials whose name contains this text
  bool is_verbose = false;
};

// Prints the counts. Returns true when all checks passed.
[[nodiscard]] bool sweep_misdeeds(const sweep_options &options);

}  // namespace zot::test
