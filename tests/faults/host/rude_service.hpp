// SPDX-License-Identifier: Apache-2.0
// A listener that closes each connection after a number of bytes, without an answer.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace zot::test {

class rude_service {
 public:
  explicit rude_service(std::size_t bytes);
  rude_service(const rude_service &) = delete;
  rude_service &operator=(const rude_service &) = delete;
  ~rude_service();

  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  std::uint16_t port_ = 0;
  pid_t process_ = -1;
};

}  // namespace zot::test
