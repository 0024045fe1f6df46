// SPDX-License-Identifier: Apache-2.0
// `zotconf show`: prints the metadata of a K and its entries.
#pragma once

#include <string>

#include "tools/cache/entry_filter.hpp"
#include "tools/model/names.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct show_options {
  std::string source;
  element who{.subsys = "AP", .index = ""};
  entry_filter filter;
};

// Returns an exit status; throws std::runtime_error when there is no good K.
int run_show(const show_options &options, const console &where);

}  // namespace zotconf
