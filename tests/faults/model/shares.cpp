// SPDX-License-Identifier: Apache-2.0
#include "shares.hpp"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/env.hpp"
#include "tests/support/files.hpp"

namespace zot::faults {
namespace {
using wall_clock = std::chrono::steady_clock;

// For each share, the number of its current sequence. In shared memory, so that it can be read
// after a crash.
class numbers {
 public:
  explicit numbers(std::size_t count) : bytes_(count * sizeof(std::uint64_t)) {
    void *const shared =
        ::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
      throw std::runtime_error("no shared memory");
    }
    running_ = {static_cast<std::uint64_t *>(shared), count};
  }
  numbers(const numbers &) = delete;
  numbers &operator=(const numbers &) = delete;
  ~numbers() { ::munmap(running_.data(), bytes_); }

  std::uint64_t &operator[](std::size_t share) { return running_[share]; }

 private:
  std::size_t bytes_;
  std::span<std::uint64_t> running_;
};

void write_counts(const tally &counts, const std::string &path) {
  std::ofstream out(path);
  for (const auto &[name, count] : counts) {
    out << count << ' ' << name << '\n';
  }
}

void add_counts(const std::string &path, tally &counts) {
  std::ifstream in(path);
  std::uint64_t count = 0;
  std::string name;
  while (in >> count && std::getline(in >> std::ws, name)) {
    counts[name] += count;
  }
}

// Runs every Nth sequence. Returns false when one has failed.
bool run_share(const options &wanted, unsigned share, std::uint64_t &running, tally &counts) {
  checker both(wanted.used, lie::none);
  const auto end = wall_clock::now() + std::chrono::seconds(wanted.seconds);
  for (std::uint64_t i = share; i < wanted.count; i += wanted.jobs) {
    if (wanted.seconds != 0 && wall_clock::now() >= end) {
      break;
    }
    running = wanted.first + i;
    if (both.run(sequence_of(wanted, running), &counts).has_value()) {
      return false;
    }
    ++counts["sequences"];
  }
  return true;
}

// Runs one sequence in a child process, because it may crash.
bool fails_in_child(const options &wanted, const sequence &steps, bool tell) {
  const pid_t child = ::fork();
  if (child == 0) {
    checker both(wanted.used, lie::none);
    const auto failed = both.run(steps, nullptr);
    if (failed.has_value() && tell) {
      std::cout << "  after step " << failed->step + 1 << ":\n" << failed->text << std::flush;
    }
    std::_Exit(failed.has_value() ? 1 : 0);
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child) {
    throw std::runtime_error("no process for a sequence");
  }
  if (tell && WIFSIGNALED(status)) {
    std::cout << "  ended by signal " << WTERMSIG(status) << "\n";
  }
  return status != 0;
}

void print_failure(const options &wanted, std::uint64_t number) {
  const auto still_fails = [&](const sequence &steps) {
    return fails_in_child(wanted, steps, false);
  };
  std::cout << "model: sequence " << number << " of seed " << wanted.seed << " fails\n";
  const sequence steps = sequence_of(wanted, number);
  if (!still_fails(steps)) {
    std::cout << "  but not again:\n" << text_of(steps);
  } else {
    const sequence shortest = shrink(steps, still_fails);
    std::cout << "  made short:\n" << text_of(shortest) << std::flush;
    static_cast<void>(fails_in_child(wanted, shortest, true));
  }
  std::cout << "  again: zotconf_model --seed " << wanted.seed << " --first " << number
            << " --count 1" << (wanted.used == adapter::client ? " --adapter client" : "") << "\n";
}

std::vector<pid_t> start_shares(const options &wanted, numbers &running, const std::string &dir) {
  std::vector<pid_t> children;
  for (unsigned share = 0; share < wanted.jobs; ++share) {
    const pid_t child = ::fork();
    if (child < 0) {
      throw std::runtime_error("no process for a share");
    }
    if (child == 0) {
      tally mine;
      const bool agreed = run_share(wanted, share, running[share], mine);
      write_counts(mine, dir + "/" + std::to_string(share));
      std::_Exit(agreed ? 0 : 1);
    }
    children.push_back(child);
  }
  return children;
}

// Returns the first share that failed, and ends the others then.
std::optional<std::size_t> wait_for(const std::vector<pid_t> &children) {
  std::vector<pid_t> running = children;
  std::optional<std::size_t> failed;
  while (!running.empty()) {
    int status = 0;
    const pid_t ended = ::wait(&status);
    if (ended < 0) {
      throw std::runtime_error("a share is lost");
    }
    std::erase(running, ended);
    if (status != 0 && !failed.has_value()) {
      failed = std::ranges::find(children, ended) - children.begin();
      for (const pid_t other : running) {
        ::kill(other, SIGTERM);
      }
    }
  }
  return failed;
}

}  // namespace

bool run_shares(const options &wanted, tally &counts) {
  const test::temp_dir dir;
  // This directory also removes what terminated shares have left behind.
  const test::env_guard temporary("TMPDIR", dir.path());
  numbers running(wanted.jobs);
  const std::vector<pid_t> children = start_shares(wanted, running, dir.path());
  const auto failed = wait_for(children);
  for (unsigned share = 0; share < wanted.jobs; ++share) {
    add_counts(dir / std::to_string(share), counts);
  }
  if (failed.has_value()) {
    print_failure(wanted, running[*failed]);
  }
  return !failed.has_value();
}

}  // namespace zot::faults
