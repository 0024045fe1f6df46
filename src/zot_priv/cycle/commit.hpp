// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zot_conf.h"

namespace zot {

// Called before a get asks for anything. Finishes a failed commit of this handle, as the client
// wanted, so that nothing is downloaded that is already there. If the commit fails again, it is
// undone, in memory too. Returns ZOT_OK, or the status of a cache that cannot be locked.
int settle_failed_commit(zot_ctx &handle);

}  // namespace zot
