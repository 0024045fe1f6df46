// SPDX-License-Identifier: Apache-2.0
// A listening socket.
#pragma once

#include <string>

#include "utilities/owner.hpp"

namespace zotconf {

struct listener {
  zot::descriptor socket{-1};
  int port = 0;  // the actual port if port 0 was requested
};

// Binds an address and a port (0: any free one) and listens. Throws std::runtime_error with the
// reason and what may help.
listener listen_on(const std::string &host, int port);

// Returns "127.0.0.1:8087" or "[::1]:8087".
std::string host_and_port(const std::string &host, int port);

}  // namespace zotconf
