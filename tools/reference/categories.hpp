// SPDX-License-Identifier: Apache-2.0
// `zotconf categories`: prints the number and name of every category.
#pragma once

#include "tools/output/console.hpp"

namespace zotconf {

struct categories_options {};

// Returns an exit status.
int run_categories(const categories_options &options, const console &where);

}  // namespace zotconf
