// SPDX-License-Identifier: Apache-2.0
// `zotconf show`: what a K says about itself, and its entries.
#pragma once

#include <string>

#include "console.hpp"
#include "entry_filter.hpp"
#include "names.hpp"

namespace zotconf {

struct show_options {
  std::string source;
  element who{.subsys = "AP", .index = ""};
  entry_filter filter;
};

// Returns an exit status; throws std::runtime_error when there is no good K.
int run_show(const show_options &options, const console &where);

}  // namespace zotconf
