// SPDX-License-Identifier: Apache-2.0
// `zotconf verify`: every K, checksum and file of the cache and of the scratch area held against
// what announces it, and what is bad fetched again on demand.
#pragma once

#include "tools/model/names.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct verify_options {
  element who{.subsys = "AP", .index = ""};  // whose K is asked for by a repair
  bool strict = false;                       // damage of the scratch area counts
  bool repair = false;
};

// Returns an exit status; throws std::exception when a repair cannot write.
int run_verify(const verify_options &options, const console &where);

}  // namespace zotconf
