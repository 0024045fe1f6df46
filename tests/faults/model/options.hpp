// SPDX-License-Identifier: Apache-2.0
// The options of the command line.
#pragma once

#include <cstdint>
#include <random>

#include "world.hpp"

namespace zot::faults {

struct options {
  std::uint64_t count = 1000;
  std::uint64_t first = 0;
  std::uint64_t seed = std::random_device{}();
  long seconds = 0;  // 0: no limit
  unsigned jobs = 1;
  adapter used = adapter::own;
  bool lies = false;
};

extern const char *const usage;

// False for words that are none of the usage.
[[nodiscard]] bool parse(int count, char **words, options &wanted);

// The sequence of that number.
[[nodiscard]] sequence sequence_of(const options &wanted, std::uint64_t number);

}  // namespace zot::faults
