// SPDX-License-Identifier: Apache-2.0
// Sweeps over the system calls of each operation: each call fails once, is cut short once, and is
// preceded once by a kill of the process group.
#pragma once

#include <string>

#include "tests/faults/calls/stage.hpp"

namespace zot::test {

struct sweep_options {
  std::string work;       // a folder for the elements
  std::string only;       // one operation; empty: all
  unsigned every = 1;     // run every Nth trial
  unsigned jobs = 1;      // trials in parallel
  bool with_log = false;  // print the library's log with each failure
};

// Prints its counts. Returns true when every check passed.
[[nodiscard]] bool sweep_calls(const sweep_options &options, const services &offered);

}  // namespace zot::test
