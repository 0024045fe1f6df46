// SPDX-License-Identifier: Apache-2.0
// Runs many trials in several processes, with their results in shared memory.
#pragma once

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <vector>

#include "tests/faults/calls/gate.hpp"

namespace zot::test {

// Calls attempt(index, worker) for each index below count, so many at once, and returns what they
// returned.
template <class Result, class Attempt>
std::vector<Result> run_trials(std::size_t count, unsigned jobs, Attempt attempt) {
  static_assert(std::is_trivially_copyable_v<Result>);
  if (count == 0) {
    return {};
  }
  const std::size_t bytes = count * sizeof(Result);
  void *const memory =
      ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), "mmap");
  }
  auto *const results = static_cast<Result *>(memory);
  std::vector<pid_t> workers;
  for (unsigned worker = 0; worker < jobs; ++worker) {
    std::fflush(nullptr);
    workers.push_back(::fork());
    if (workers.back() == 0) {
      end_with_parent();
      adopt_orphans();
      for (std::size_t at = worker; at < count; at += jobs) {
        results[at] = attempt(at, worker);
      }
      ::_exit(0);
    }
  }
  bool complete = true;
  for (const pid_t worker : workers) {
    int status = 0;
    complete = ::waitpid(worker, &status, 0) == worker && status == 0 && complete;
  }
  std::vector<Result> all(results, results + count);
  ::munmap(memory, bytes);
  if (!complete) {
    throw std::runtime_error("a process that tries has ended early");
  }
  return all;
}

}  // namespace zot::test
