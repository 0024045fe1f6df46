// SPDX-License-Identifier: Apache-2.0
// The counters and flags that the processes of a trial share in memory.
#pragma once

#include <array>
#include <atomic>

namespace zot::test {

inline constexpr unsigned client_count = 4;

struct board {
  std::atomic<unsigned> publications;  // their number says which configuration is published
  std::atomic<bool> is_ending;         // to the clients
  std::atomic<bool> has_committed;     // from then on something is in force
  std::array<std::atomic<unsigned>, client_count> cycles;  // of each client, complete
  std::atomic<unsigned> commits;
  std::atomic<unsigned> roll_backs;
  std::atomic<unsigned> without_verdict;
  std::atomic<unsigned> refused_still;  // gets of what was rolled back
  std::atomic<unsigned> interferences;  // calls that noticed another process
  std::atomic<unsigned> timeouts;
  std::atomic<unsigned> observations;
  std::atomic<unsigned> longest_call;  // in milliseconds
};

class shared_board {
 public:
  shared_board();
  shared_board(const shared_board &) = delete;
  shared_board &operator=(const shared_board &) = delete;
  ~shared_board();

  board *operator->() const { return board_; }
  board &operator*() const { return *board_; }

 private:
  board *board_;
};

// The configuration that a number of publications stands for.
[[nodiscard]] char published_letter(unsigned publications);

}  // namespace zot::test
