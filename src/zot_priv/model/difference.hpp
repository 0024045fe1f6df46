// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zot {

// The first field in which two GPB entries differ: the kind of a zot_gpb_cmp.
enum difference { same_entry = 0, other_category = 1, other_key = 2, other_version = 3 };

}  // namespace zot
