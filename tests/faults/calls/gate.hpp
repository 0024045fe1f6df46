// SPDX-License-Identifier: Apache-2.0
// A gate that stops every watched system call of a process and of its commands, one by one. At the
// gate one call can fail, be cut short, or be preceded by a kill of the process group.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <vector>

namespace zot::test {

// This machine, or this user on it, lacks what a sweep works with.
struct not_allowed : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class fault { nothing, error, cut_short, kill };

// A call by its place: which process, in the order in which they appear, and its how-manieth call.
// Unlike a number over all processes it doesn't depend on how those that run at once take turns.
struct call_place {
  unsigned process = 0;
  unsigned call = 0;
  auto operator<=>(const call_place &) const = default;
};

struct passed_call {
  call_place place;
  int number = 0;
  unsigned caller = 0;         // its process, while it waits at the gate
  std::uint64_t argument = 0;  // the first
};

struct planned_fault {
  fault what = fault::nothing;
  call_place place = {};
  int error = 0;
  bool lasts = false;  // so do all calls after it
};

// Shared by the process at the gate and the one that watches it.
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

// From arm() to disarm() calls count. Commands that were left behind end before disarm() does.
void arm(gate_page &page);
void disarm(gate_page &page);

struct gated_run {
  std::vector<passed_call> calls;  // while armed
  bool reached = false;            // the planned fault happened
  bool hung = false;               // it had to be ended
  int wait_status = 0;
};

// Runs a client in a process of its own, with all its commands in one process group, until nothing
// of the group is left. The client's result is the exit status. Before a call that counts is
// answered, look() is called with it, if there is one.
[[nodiscard]] gated_run run_gated(gate_page &page, const planned_fault &plan,
                                  const std::function<int()> &client,
                                  const std::function<void(const passed_call &)> &look = {});

// The same without a gate.
[[nodiscard]] int run_process(gate_page &page, const std::function<int()> &client);

// Has this process end with the one that forked it, whatever ends that.
void end_with_parent();

// Has orphans of later runs become children of this process, so that their end can be waited for.
void adopt_orphans();

}  // namespace zot::test
