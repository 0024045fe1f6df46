// SPDX-License-Identifier: Apache-2.0
// A socket that listens.
#pragma once

#include <string>

#include "utilities/owner.hpp"

namespace zotconf {

struct listener {
  zot::descriptor socket{-1};
  int port = 0;  // the one that was picked where any was asked for
};

// Binds an address and a port, 0 for any free one, and listens. Throws a std::runtime_error that
// says what is wrong and what may help.
listener listen_on(const std::string &host, int port);

// "127.0.0.1:8087", "[::1]:8087"
std::string host_and_port(const std::string &host, int port);

}  // namespace zotconf
