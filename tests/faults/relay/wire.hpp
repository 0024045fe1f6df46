// SPDX-License-Identifier: Apache-2.0
// A connection that a server has accepted, with or without TLS.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "tests/faults/relay/certificates.hpp"
#include "utilities/owner.hpp"

namespace zot::test {

using tls_settings = std::shared_ptr<SSL_CTX>;

// Without sessions, so that each connection shows the certificate. With an authority, clients need
// a certificate that it issued.
[[nodiscard]] tls_settings make_tls(const identity &server, const identity *client_authority);

class wire {
 public:
  explicit wire(descriptor socket) : socket_(std::move(socket)) {}

  // Returns false when the client does not complete the handshake.
  [[nodiscard]] bool begin_tls(const tls_settings &settings);
  // Returns false when the client has closed the connection.
  bool send(std::string_view bytes);
  // What has arrived; empty when the connection has ended.
  [[nodiscard]] std::string receive();
  // Closes normally: the client can read what was sent.
  void finish();
  // Resets the connection, whatever the client has read.
  void reset();
  // Ends all waiting, from another thread.
  void interrupt();

 private:
  std::mutex mutex_;  // guards the number of the socket
  descriptor socket_;
  std::unique_ptr<SSL, releaser<::SSL_free>> tls_;
};

}  // namespace zot::test
