// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"

namespace zot {

// Checks the text of a K as zot_priv_chk_vail_k_cont() does. `checksum` is the checksum that the
// text is known to have, or null. `known` is what was parsed before, or null: a text with the same
// checksum is not parsed again.
int check_k_content(zot_ctx *handle, zot_k *k, const char *checksum, zot_parsed_k *known);

}  // namespace zot
