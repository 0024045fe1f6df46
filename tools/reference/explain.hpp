// SPDX-License-Identifier: Apache-2.0
// `zotconf explain`: prints what a status of the library means and what to do about it.
#pragma once

#include <string>

#include "tools/output/console.hpp"

namespace zotconf {

struct explain_options {
  std::string status;     // number or name; empty: all
  bool markdown = false;  // print the document docs/errors.md
};

// Returns an exit status.
int run_explain(const explain_options &options, const console &where);

}  // namespace zotconf
