// SPDX-License-Identifier: Apache-2.0
// Inspects the descriptors of a process at each of its system calls.
#pragma once

#include <functional>
#include <set>
#include <string>

namespace zot::test {

struct watched_descriptors {
  // What libcurl wakes its own loop with.
  static constexpr const char *socket_pair = "socket pair";

  std::size_t looks = 0;
  // What a program that another thread starts at some moment would have inherited.
  std::set<std::string> inheritable;
  // What stood at a moment for standard input, output or error.
  std::set<std::string> standard;
  // Every descriptor that came, however short.
  std::set<std::string> all;
};

// Runs something in a process of its own under the eyes of this one. What that process had open
// when it began doesn't count. What the work throws goes on.
[[nodiscard]] watched_descriptors watch_descriptors(const std::function<void()> &work);

}  // namespace zot::test
