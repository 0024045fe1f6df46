// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"

namespace zot {

// Reads the stored current K below a root and verifies it as zot_priv_read_cur_k_f() does. The text
// is expected to be that of `expected`, whose parsed tree is then shared.
int read_expected_k(zot_ctx *handle, zot_k *k, const char *root, const zot_k &expected);

}  // namespace zot
