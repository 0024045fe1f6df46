// SPDX-License-Identifier: Apache-2.0
// The system calls on files, processes and connections into which the sweeps inject faults.
#pragma once

#include <string>
#include <vector>

namespace zot::test {

// What a call that is cut short does instead of all.
enum class byte_flow { neither, in, out };

struct watched_call {
  int number;
  const char *name;
  byte_flow flow = byte_flow::neither;
};

// Those of them that this machine has.
[[nodiscard]] const std::vector<watched_call> &watched_calls();

// Null for a call that is not watched.
[[nodiscard]] const watched_call *find_call(int number);

[[nodiscard]] bool is_link_call(int number);

[[nodiscard]] std::string call_name(int number);

}  // namespace zot::test
