// SPDX-License-Identifier: Apache-2.0
// `zotconf status`: what lies in an element's cache and what the next get would make of it, told
// from the disk alone and without writing to it.
#pragma once

#include "tools/output/console.hpp"

namespace zotconf {

struct status_options {};

// Returns an exit status.
int run_status(const status_options &options, const console &where);

}  // namespace zotconf
