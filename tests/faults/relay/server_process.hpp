// SPDX-License-Identifier: Apache-2.0
// A static server in a process of its own, so that its memory and its descriptors do not count as
// those of the relay.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>

#include "tests/faults/relay/static_server.hpp"
#include "utilities/owner.hpp"

namespace zot::test {

class server_process {
 public:
  // Says how the server behaves, for each number that behave() gets. Runs in the server's process.
  using conduct = std::function<behaviour(std::uint64_t number)>;

  // Must be created before the first thread of this process.
  explicit server_process(const conduct &how);
  server_process(const server_process &) = delete;
  server_process &operator=(const server_process &) = delete;
  ~server_process();

  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] std::string url(const std::string &scheme = "http") const;

  // Returns once the server behaves so. What came before is over.
  void behave(std::uint64_t number);
  // The number of requests before the last change.
  [[nodiscard]] unsigned requests_before() const { return requests_before_; }
  // Whether a client had connected to the port in the redirections before the last change.
  [[nodiscard]] bool is_visited_elsewhere() const { return is_visited_elsewhere_; }

 private:
  descriptor control_{-1};
  pid_t process_ = -1;
  int port_ = 0;
  unsigned requests_before_ = 0;
  bool is_visited_elsewhere_ = false;
};

}  // namespace zot::test
