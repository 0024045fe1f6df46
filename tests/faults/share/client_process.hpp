// SPDX-License-Identifier: Apache-2.0
// The two kinds of processes that share a cache: clients that run cycles, and processes that start
// and read what is in force.
#pragma once

#include <cstdint>
#include <random>

#include "tests/faults/calls/client.hpp"
#include "tests/faults/share/board.hpp"

namespace zot::test {

struct client_wishes {
  unsigned number = 0;  // of this client
  unsigned cycles = 0;
  std::uint16_t port = 0;
  std::uint64_t seed = 0;
};

// Goes through cycles until the board has counted enough of them. Throws at the first thing that
// does not hold.
void go_through_cycles(session &client, const client_wishes &wished, board &told);

// Starts, and asks without a service what is in force.
void observe(session &client, board &told);

}  // namespace zot::test
