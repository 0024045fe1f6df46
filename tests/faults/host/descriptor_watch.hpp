// SPDX-License-Identifier: Apache-2.0
// Inspects the descriptors of a process at each of its system calls.
#pragma once

#include <functional>
#include <set>
#include <string>

namespace zot::test {

struct watched_descriptors {
  // libcurl uses it to wake up its own event loop.
  static constexpr const char *socket_pair = "socket pair";

  std::size_t looks = 0;
  // Descriptors that were open without O_CLOEXEC at some time: a program started by another thread
  // would inherit them.
  std::set<std::string> inheritable;
  // Descriptors that had the number of standard input, output or error at some time.
  std::set<std::string> standard;
  // Every descriptor that was open, even for a short time.
  std::set<std::string> all;
};

// Runs `work` in a child process and watches its descriptors. Descriptors that the child inherits
// do not count. Rethrows an exception of `work`.
[[nodiscard]] watched_descriptors watch_descriptors(const std::function<void()> &work);

}  // namespace zot::test
