// SPDX-License-Identifier: Apache-2.0
// The C allocator of this process, with failures on demand and its own record of blocks. Every
// allocation of the library, of libcurl, libcrypto, cJSON and the C library itself goes through it.
//
// How misuse is detected: a new block is filled with a pattern and followed by a canary. A freed
// block is filled with another pattern and held back for the rest of the trial. So bytes that are
// written behind a block or into a freed one are detected, a second free differs from a first, and
// what is read from a freed block is neither an address nor a text.
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

// The allocations of the calling thread are counted from 1, and the given one fails, or it and all
// that follow. What comes through operator new belongs to the tests: it neither counts nor fails.
void arm(failing how, std::uint64_t which);
armed_count disarm();

// From here on the blocks of the calling thread are kept book of.
void keep_books();

struct heap_state {
  std::uint64_t newest_block;
  unsigned errors;  // double or unknown frees, bytes written outside a block or after a free
  const char *first_error;  // empty without one
};

// Looks into every live and every held back block.
[[nodiscard]] heap_state inspect_heap();

// The bytes of the blocks that were allocated after the given one and are still there.
[[nodiscard]] std::vector<std::string_view> live_blocks_since(std::uint64_t number);

// To find out what a failure is about: where the failing allocation was asked for is written to
// standard error, and the live blocks remember where they come from.
void trace_allocations();
void print_blocks_since(std::uint64_t number);

}  // namespace zot::faults
