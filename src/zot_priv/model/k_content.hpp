// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"

namespace zot {

// Checks the text of a K, as zot_priv_chk_vail_k_cont does. `known` is a K that was checked before,
// or null: the same text is not parsed again.
int check_k_content(zot_ctx *handle, zot_k *k, const zot_k *known);

}  // namespace zot
