// SPDX-License-Identifier: Apache-2.0
// `zotconf verify`: checks every K, checksum file and GPB file of the cache and of the scratch
// area, and fetches the bad ones again on request.
#pragma once

#include "tools/model/names.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct verify_options {
  element who{.subsys = "AP", .index = ""};  // the element whose K a repair requests
  bool strict = false;                       // damage in the scratch area counts too
  bool repair = false;
};

// Returns an exit status; throws std::exception when a repair cannot write.
int run_verify(const verify_options &options, const console &where);

}  // namespace zotconf
