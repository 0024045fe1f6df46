// SPDX-License-Identifier: Apache-2.0
// Makes each system call of each operation fail once, cuts it short once, and kills the process
// group before it once.
#pragma once

#include <string>

#include "tests/faults/calls/stage.hpp"

namespace zot::test {

struct sweep_options {
  std::string work;       // a folder for the elements
  std::string only;       // one operation; empty for all
  unsigned every = 1;     // of so many points one is taken
  unsigned jobs = 1;      // so many at once
  bool with_log = false;  // the library's log with each failure
};

// Prints its counts. True when everything held.
[[nodiscard]] bool sweep_calls(const sweep_options &options, const services &offered);

}  // namespace zot::test
