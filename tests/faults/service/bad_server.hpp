// SPDX-License-Identifier: Apache-2.0
// A service on raw sockets, which can send what no HTTP library would.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "tests/faults/service/misdeed.hpp"
#include "tests/support/publication.hpp"
#include "utilities/owner.hpp"

namespace zot::test {

// A socket that listens on the loopback host.
[[nodiscard]] descriptor listen_on(std::uint16_t port, std::uint16_t *taken);

// Answers one connection after the other, each with one answer. It counts on a client that asks for
// checksum, K and archive in that order.
class bad_server {
 public:
  bad_server();
  bad_server(const bad_server &) = delete;
  bad_server &operator=(const bad_server &) = delete;
  ~bad_server();

  [[nodiscard]] std::uint16_t port() const { return port_; }

  // From here on everything is served in order.
  void serve(publication published);
  // From here on the request of that kind meets the misdeed.
  void misbehave(const misdeed &what, request_kind at, publication published);
  // Connections since then.
  [[nodiscard]] unsigned connections() const { return connections_; }
  // Whether anybody connected to the port that redirections name.
  [[nodiscard]] bool is_visited_elsewhere() const;

 private:
  void begin(std::optional<publication> published);
  void run();
  void converse(descriptor &connection);
  [[nodiscard]] answer good_answer(request_kind kind, const std::string &request_body) const;
  [[nodiscard]] bool is_bad(unsigned number) const;
  void act(descriptor &connection, const script &steps);
  bool perform(descriptor &connection, const step &one);
  [[nodiscard]] std::string with_ports(std::string bytes) const;
  void wait_for_hang_up(const descriptor &connection, unsigned milliseconds) const;

  std::uint16_t port_ = 0;
  std::uint16_t elsewhere_port_ = 0;
  descriptor elsewhere_;
  std::mutex mutex_;  // of what one phase is made of
  descriptor listener_;
  std::optional<publication> published_;
  const misdeed *misdeed_ = nullptr;
  request_kind at_ = request_kind::checksum;
  std::atomic<unsigned> connections_ = 0;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace zot::test
