// SPDX-License-Identifier: Apache-2.0
// The messages between the process of an element and that of its service.
#pragma once

#include <cstdint>

namespace zot::test {

// What is published, and how: the first and the third configuration are served in order.
enum class phase : std::uint32_t { first, bad, third };

// Of the phase that ends.
struct phase_report {
  std::uint16_t port;
  unsigned connections;
  bool is_visited_elsewhere;
};

}  // namespace zot::test
