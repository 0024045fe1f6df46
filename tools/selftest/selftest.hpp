// SPDX-License-Identifier: Apache-2.0
// `zotconf selftest`: runs a complete cycle on this machine, to check that the program works here.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct selftest_options {
  fs::path dir;              // parent of the test folder; empty: that of the system
  bool keep = false;         // keep the test folder
  std::string version;       // of this program
  std::string release_date;  // of this program, YYYY-MM-DD
};

// Returns an exit status.
int run_selftest(const selftest_options &options, const console &where);

}  // namespace zotconf
