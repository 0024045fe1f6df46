// SPDX-License-Identifier: Apache-2.0
// A client that sends and reads what a test says, whatever HTTP says of it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "utilities/owner.hpp"

namespace zot::test {

class raw_client {
 public:
  // Connects to a port of the loopback host. Reading ends after so long without a byte.
  explicit raw_client(std::uint16_t port, std::chrono::seconds patience = std::chrono::seconds(60));

  // False when the other end has closed the connection.
  bool send(std::string_view bytes);
  // Up to this text and with it, or what there was before the end.
  std::string read_until(std::string_view text);
  // So many bytes, or fewer at the end.
  std::string read(std::size_t size);
  // Up to the end of the connection.
  std::string read_all();
  // True when the other end closes without a byte.
  bool is_closed_silently();

 private:
  std::string read_some(std::size_t most);

  zot::descriptor socket_{-1};
};

}  // namespace zot::test
