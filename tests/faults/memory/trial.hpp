// SPDX-License-Identifier: Apache-2.0
// One failure and everything that has to hold after it, in a process of its own.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "operations.hpp"

namespace zot::faults {

// What a trial tells the process that started it.
struct report {
  bool is_complete;
  bool is_as_undisturbed;
  bool has_known_leak;
  int status;
  armed_count allocations;
  std::uint32_t found_loads;     // that succeeded
  std::array<char, 32768> text;  // what was given, or what did not hold
  std::array<char, 32768> after;
  std::array<char, 256> notes;
  std::array<char, 4096> found_anew;  // by a new process, before anything followed
  // Of the blocks that are still there after the handle was freed.
  std::size_t left_count;
  std::array<std::size_t, 64> left_sizes;
};

class shared_report {
 public:
  shared_report();
  shared_report(const shared_report &) = delete;
  shared_report &operator=(const shared_report &) = delete;
  ~shared_report();
  [[nodiscard]] report &operator*() const { return *shared_; }
  [[nodiscard]] report *operator->() const { return shared_; }

 private:
  report *shared_;
};

struct trial {
  fault tried;
  std::uint32_t lost = 0;        // loads that are lost beforehand
  std::uint64_t last_block = 0;  // before there was a handle
  // Without any the trial becomes a reference itself.
  references known;
  std::vector<std::size_t> left_sizes;  // undisturbed
  // What a new process finds before the operation, and after it.
  std::string found_before;
  std::string found_after;
  bool shows_all = false;
};

// True when all held; otherwise the report says what did not.
[[nodiscard]] bool run_trial(const operation &tried, stage &on, const trial &wanted,
                             shared_report &told);

}  // namespace zot::faults
