// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"

namespace zot {

// Before anything else is asked for: finishes a commit of this handle that failed, as the client
// wanted, so that nothing is downloaded that is there. A commit that fails once more is undone, in
// memory too. ZOT_OK, or the status of a cache that cannot be had.
int settle_failed_commit(zot_ctx &handle);

}  // namespace zot
