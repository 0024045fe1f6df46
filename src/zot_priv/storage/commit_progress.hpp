// SPDX-License-Identifier: Apache-2.0
// How far a commit or a roll-back came, so that the next call of the cycle goes on there.
#pragma once

#include <cstdint>

namespace zot {

// Kept in the spare word of the statistics, which every check zeroes: the step that is open, and
// which files were rotated already. Rotating them again would lose the configuration before.
enum commit_progress : uint32_t {
  commit_not_begun = 0,
  commit_k_files = 1,
  commit_gpb_files = 2,
  commit_medium = 3,
  commit_step_bits = 0x0f,
  commit_k_rotated = 0x10,
  commit_checksum_rotated = 0x20,
  // The last K is forgotten, but there was no memory for the marks that go with it.
  roll_back_owes_marks = 0x40
};

}  // namespace zot
