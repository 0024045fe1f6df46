// SPDX-License-Identifier: Apache-2.0
// Whether a commit has begun, so that the next call of the cycle goes on with it.
#pragma once

#include "zot_conf.h"

namespace zot {

// Memory holds the new configuration from then on until the commit is done. Told by the spare word
// of the statistics, which every check zeroes.
inline bool has_commit_begun(const zot_ctx &handle) {
  return handle.stat.reserved != 0;
}

inline void set_commit_begun(zot_ctx &handle, bool has_begun) {
  handle.stat.reserved = has_begun ? 1 : 0;
}

}  // namespace zot
