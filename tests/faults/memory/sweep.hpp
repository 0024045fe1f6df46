// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "operations.hpp"

namespace zot::faults {

struct options {
  std::uint64_t at_most = 0;  // 0: all
  unsigned jobs = 1;
  std::string operation;  // empty: all
  fault only;
};

// Totals of all operations, shared by the worker processes.
struct tally {
  std::atomic<std::uint64_t> next_operation;
  std::atomic<std::uint64_t> operations;
  std::atomic<std::uint64_t> allocations;
  std::atomic<std::uint64_t> tried;
  std::atomic<std::uint64_t> held;
  std::atomic<std::uint64_t> known_leaks;
};

// Makes the allocations of one operation fail, each in a separate process.
void sweep_operation(const operation &tried, const options &asked, const ports &at, tally &all);

}  // namespace zot::faults
