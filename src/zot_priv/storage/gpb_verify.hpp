// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"
#include "zot_priv/storage/gpb_folder.hpp"

namespace zot {

// Verifies the file of an entry and makes its bytes the entry's content. On failure the content
// stays as it was. `known` is what was verified before against the same size and checksum, or null:
// a file that still holds those bytes passes without a digest and shares them. Returns
// ZOT_ERR_NOMEM, or what zot_priv_chk_vail_gpb() returns.
int load_content(zot_ctx *handle, zot_gpb *gpb, gpb_folder &folder, zot_verified *known);

}  // namespace zot
