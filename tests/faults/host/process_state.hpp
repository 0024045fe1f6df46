// SPDX-License-Identifier: Apache-2.0
// The state that belongs to a process and that a library must not change.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <array>
#include <map>
#include <string>
#include <vector>

namespace zot::test {

struct signal_state {
  std::uintptr_t handler = 0;
  int flags = 0;
  bool is_blocked = false;
  bool is_pending = false;
  bool operator==(const signal_state &) const = default;
};

struct process_state {
  std::map<int, std::string> descriptors;  // what each stands for
  std::size_t threads = 0;
  std::string children;
  std::map<int, signal_state> signals;
  std::string directory;
  std::string umask;
  std::string locale;
  std::vector<std::string> environment;  // without the port of the service
};

[[nodiscard]] std::map<int, std::string> descriptors_of(const std::string &process = "self");
[[nodiscard]] process_state state_of_process();
// Empty when nothing differs.
[[nodiscard]] std::string difference(const process_state &before, const process_state &after);

}  // namespace zot::test
