// SPDX-License-Identifier: Apache-2.0
// Restores the old GPB files after a failed in-place commit.
#pragma once

#include "zot_conf.h"

namespace zot {

// Whether memory holds all files of a list and the process may write each of them. False with errno
// if it may not.
bool can_put_back(const zot_list *gpbs);

// Replaces what a commit brought by the files of a list, which only memory still holds. Returns
// false with errno if one of them could not be written.
bool put_back(const zot_ctx &handle, const zot_list *gpbs);

}  // namespace zot
