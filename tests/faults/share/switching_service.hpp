// SPDX-License-Identifier: Apache-2.0
// One service in a process of its own. Its configuration changes with the number of publications,
// also between two requests of one get.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "tests/faults/share/board.hpp"

namespace zot::test {

class switching_service {
 public:
  explicit switching_service(const board &told);
  switching_service(const switching_service &) = delete;
  switching_service &operator=(const switching_service &) = delete;
  ~switching_service();

  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  std::uint16_t port_ = 0;
  pid_t process_ = -1;
};

}  // namespace zot::test
