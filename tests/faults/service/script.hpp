// SPDX-License-Identifier: Apache-2.0
// What a server sends on a connection, as data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zot::test {

// One action on a connection. After the last one the connection is closed normally.
struct step {
  enum class kind { send, drip, stall, reset };
  static constexpr std::uint64_t without_end = UINT64_MAX;

  kind what = kind::send;
  std::string bytes = {};
  std::uint64_t times = 1;  // how often to send the bytes; ends early if the client closes
};
using script = std::vector<step>;

// The right answer to a request, from which a bad one is derived.
struct answer {
  std::string head;  // including the empty line
  std::string body;

  [[nodiscard]] std::string whole() const { return head + body; }
};

// The status line before headers and body that are sent unchanged.
inline constexpr const char *ok_line = "HTTP/1.1 200 OK\r\n";

// Functions that build the tables.
[[nodiscard]] script send(std::string bytes);
[[nodiscard]] script send_without_end(std::string first, std::string repeated);
[[nodiscard]] std::function<script(const answer &)> always(script steps);
[[nodiscard]] std::string with_length(std::size_t length);

}  // namespace zot::test
