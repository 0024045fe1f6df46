// SPDX-License-Identifier: Apache-2.0
// `zotconf selftest`: a whole cycle on this machine, to see that the program works on it.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct selftest_options {
  fs::path dir;              // the folder of the test is made below it; empty: the system's
  bool keep = false;         // the folder stays
  std::string version;       // of this program
  std::string release_date;  // of this program, YYYY-MM-DD
};

// Returns an exit status.
int run_selftest(const selftest_options &options, const console &where);

}  // namespace zotconf
