// SPDX-License-Identifier: Apache-2.0
// How far a commit came, so that the next call of the cycle goes on there.
#pragma once

#include <cstdint>

namespace zot {

// The step that is open, in the spare word of the statistics, which every check zeroes. Memory
// holds the new configuration from the first of them on.
enum commit_progress : uint32_t {
  commit_not_begun = 0,
  commit_k_files = 1,
  commit_gpb_files = 2,
  commit_medium = 3
};

}  // namespace zot
