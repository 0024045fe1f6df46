// SPDX-License-Identifier: Apache-2.0
// A gate that stops every watched system call of a process and of its commands, one by one. There,
// one call can fail, be cut short, or be preceded by a kill of the process group.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <vector>

namespace zot::test {

// Thrown when the machine or the user lacks something that a sweep needs.
struct not_allowed : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class fault { nothing, error, cut_short, kill };

// Identifies a call by its process, numbered in order of appearance, and its number within that
// process. A number over all processes would depend on how parallel processes are scheduled.
struct call_place {
  unsigned process = 0;
  unsigned call = 0;
  auto operator<=>(const call_place &) const = default;
};

struct passed_call {
  call_place place;
  int number = 0;
  unsigned caller = 0;         // its process ID, while it waits at the gate
  std::uint64_t argument = 0;  // the first argument
};

struct planned_fault {
  fault what = fault::nothing;
  call_place place = {};
  int error = 0;
  bool lasts = false;  // all later calls fail too
};

// Shared between the client at the gate and the process that watches it.
struct gate_page {
  static constexpr std::size_t text_size = 8192;

  std::atomic<int> listener;
  std::atomic<bool> armed;
  std::atomic<int> status;
  char text[text_size];
};

class shared_page {
 public:
  shared_page();
  shared_page(const shared_page &) = delete;
  shared_page &operator=(const shared_page &) = delete;
  ~shared_page();

  gate_page *operator->() const { return page_; }
  gate_page &operator*() const { return *page_; }

 private:
  gate_page *page_;
};

// Calls between arm() and disarm() count. disarm() waits for commands that are still running.
void arm(gate_page &page);
void disarm(gate_page &page);

struct gated_run {
  std::vector<passed_call> calls;  // between arm() and disarm()
  bool reached = false;            // the planned fault happened
  bool hung = false;               // killed at the time limit
  int wait_status = 0;
};

// Runs a client and its commands in a separate process group until the whole group has ended. The
// client's result is the exit status. If look() is given, it is called with each counted call
// before the call is answered.
[[nodiscard]] gated_run run_gated(gate_page &page, const planned_fault &plan,
                                  const std::function<int()> &client,
                                  const std::function<void(const passed_call &)> &look = {});

// Runs a client without a gate.
[[nodiscard]] int run_process(gate_page &page, const std::function<int()> &client);

// Makes this process end when its parent ends for any reason.
void end_with_parent();

// Makes orphans of later runs children of this process, so that it can wait for their end.
void adopt_orphans();

}  // namespace zot::test
