// SPDX-License-Identifier: Apache-2.0
// The C allocator of this process. It can fail on demand and keeps its own record of blocks. The
// library, libcurl, libcrypto, cJSON and the C library itself use it for every allocation.
//
// How misuse is detected: a new block is filled with a pattern and followed by a canary. A freed
// block is filled with another pattern and not reused until the end of the trial. This detects
// writes behind a block, writes into a freed block, and double frees. Data read from a freed block
// is neither a valid address nor a valid text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace zot::faults {

enum class failing { never, once, from_then_on };

struct armed_count {
  std::uint64_t allocations = 0;
  std::uint64_t failed = 0;
};

// Counts the allocations of the calling thread, starting with 1, and makes the given one fail, or
// that one and all later ones. Allocations by operator new belong to the tests: they neither count
// nor fail.
void arm(failing how, std::uint64_t which);
armed_count disarm();

// Starts recording the blocks of the calling thread.
void keep_books();

struct heap_state {
  std::uint64_t newest_block;
  unsigned errors;  // double or unknown frees, bytes written outside a block or after a free
  const char *first_error;  // empty without an error
};

// Checks every live and every freed block.
[[nodiscard]] heap_state inspect_heap();

// The bytes of the blocks that were allocated after the given one and are still allocated.
[[nodiscard]] std::vector<std::string_view> live_blocks_since(std::uint64_t number);

// For debugging: prints on standard error where the failing allocation was requested, and stores
// for each block where it was allocated.
void trace_allocations();
void print_blocks_since(std::uint64_t number);

}  // namespace zot::faults
