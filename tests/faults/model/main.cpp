// SPDX-License-Identifier: Apache-2.0
// Runs random sequences of what controllers, services, processes and accidents do to an element,
// and compares each step with the model.
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "check.hpp"
#include "options.hpp"
#include "shares.hpp"

namespace {
using namespace zot::faults;

std::uint64_t print_counts(const tally &counts) {
  std::uint64_t steps = 0;
  for (const auto &[name, count] : counts) {
    steps += name.starts_with("step ") ? count : 0;
    if (name != "sequences") {
      std::cout << "  " << name << ": " << count << "\n";
    }
  }
  return steps;
}

bool is_found(const options &wanted, lie told) {
  constexpr std::size_t short_enough = 8;
  checker both(wanted.used, told);
  const auto fails = [&](const sequence &steps) { return both.run(steps, nullptr).has_value(); };
  for (std::uint64_t i = 0; i < wanted.count; ++i) {
    const sequence steps = sequence_of(wanted, wanted.first + i);
    if (fails(steps)) {
      const sequence shortest = shrink(steps, fails);
      std::cout << "lie " << static_cast<int>(told) << " found by sequence " << i << " with "
                << steps.size() << " steps, made short:\n"
                << text_of(shortest);
      return shortest.size() <= short_enough;
    }
  }
  return false;
}

int find_lies(const options &wanted) {
  unsigned found = 0;
  for (unsigned told = 1; told < lie_count; ++told) {
    found += is_found(wanted, static_cast<lie>(told)) ? 1U : 0U;
  }
  std::cout << "lies: " << lie_count - 1 << " told to the model, seed " << wanted.seed << ": "
            << found << " found\n";
  return found == lie_count - 1 ? 0 : 1;
}

// Commands and copies take most of the time, so they get no disk.
void work_in_memory() {
  const char *const shared_memory = "/dev/shm";
  if (std::getenv("TMPDIR") == nullptr && ::access(shared_memory, W_OK | X_OK) == 0) {
    ::setenv("TMPDIR", shared_memory, 1);
  }
}

}  // namespace

int main(int count, char **words) {
  options wanted;
  if (!parse(count, words, wanted)) {
    std::cerr << usage;
    return 2;
  }
  work_in_memory();
  std::cout << "seed " << wanted.seed << std::endl;
  if (wanted.lies) {
    return find_lies(wanted);
  }
  tally counts;
  const bool agreed = run_shares(wanted, counts);
  const std::uint64_t steps = print_counts(counts);
  if (!agreed || counts["sequences"] == 0) {
    return 1;
  }
  std::cout << "model: " << counts["sequences"] << " sequences, " << steps << " steps, seed "
            << wanted.seed << ": all agreed\n";
  return 0;
}
