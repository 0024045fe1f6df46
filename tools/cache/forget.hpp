// SPDX-License-Identifier: Apache-2.0
// `zotconf forget`: cancels a rollback, so that the same configuration is offered again.
#pragma once

#include "tools/output/console.hpp"

namespace zotconf {

struct forget_options {};

// Returns an exit status; throws std::exception when the cache cannot be read or changed, or when
// another process uses it.
int run_forget(const forget_options &options, const console &where);

}  // namespace zotconf
