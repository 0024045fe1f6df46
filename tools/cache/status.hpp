// SPDX-License-Identifier: Apache-2.0
// `zotconf status`: prints what an element's cache contains and what the next get would do with it.
// Reads only the disk and writes nothing.
#pragma once

#include "tools/output/console.hpp"

namespace zotconf {

struct status_options {};

// Returns an exit status.
int run_status(const status_options &options, const console &where);

}  // namespace zotconf
