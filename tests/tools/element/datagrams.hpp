// SPDX-License-Identifier: Apache-2.0
// The service manager's end of the notification socket.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstddef>
#include <stdexcept>
#include <string>

#include "utilities/owner.hpp"

namespace zot::test {

class datagrams {
 public:
  // Takes a path, or a name that begins with '@' for an abstract socket.
  explicit datagrams(const std::string &name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    if (name.front() == '@') {
      address.sun_path[0] = '\0';
    }
    const size_t size = offsetof(sockaddr_un, sun_path) + name.size();
    if (::bind(fd_.get(), reinterpret_cast<const sockaddr *>(&address),
               static_cast<socklen_t>(size)) != 0) {
      throw std::runtime_error("cannot bind " + name);
    }
  }

  // Returns the next message. Throws when none arrives within a minute.
  [[nodiscard]] std::string next() const {
    if (!waits(60000)) {
      throw std::runtime_error("no message");
    }
    std::array<char, 4096> bytes{};
    const ssize_t size = ::recv(fd_.get(), bytes.data(), bytes.size(), 0);
    return {bytes.data(), size > 0 ? static_cast<size_t>(size) : 0};
  }

  // Reads messages until one begins with this text.
  [[nodiscard]] std::string next_with(const std::string &begin) const {
    std::string message = next();
    while (!message.starts_with(begin)) {
      message = next();
    }
    return message;
  }

  [[nodiscard]] bool is_empty() const { return !waits(0); }

 private:
  [[nodiscard]] bool waits(int milliseconds) const {
    pollfd readable{.fd = fd_.get(), .events = POLLIN, .revents = 0};
    return ::poll(&readable, 1, milliseconds) == 1;
  }

  zot::descriptor fd_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

}  // namespace zot::test
