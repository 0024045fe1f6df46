// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/wire.hpp"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <sys/socket.h>

#include <stdexcept>
#include <utility>

namespace zot::test {
namespace {

constexpr std::size_t most_at_once = 16384;

// Bytes that are sent one by one must also arrive one by one.
void send_without_delay(int socket) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace

tls_settings make_tls(const identity &server, const identity *client_authority) {
  tls_settings settings(::SSL_CTX_new(::TLS_server_method()), ::SSL_CTX_free);
  if (settings == nullptr ||
      ::SSL_CTX_use_certificate(settings.get(), server.certificate.get()) != 1 ||
      ::SSL_CTX_use_PrivateKey(settings.get(), server.key.get()) != 1) {
    throw std::runtime_error("no TLS settings");
  }
  SSL_CTX_set_session_cache_mode(settings.get(), SSL_SESS_CACHE_OFF);
  ::SSL_CTX_set_num_tickets(settings.get(), 0);
  if (client_authority != nullptr) {
    ::X509_STORE_add_cert(::SSL_CTX_get_cert_store(settings.get()),
                          client_authority->certificate.get());
    ::SSL_CTX_set_verify(settings.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                         nullptr);
  }
  return settings;
}

bool wire::begin_tls(const tls_settings &settings) {
  tls_.reset(::SSL_new(settings.get()));
  ::SSL_set_fd(tls_.get(), socket_.get());
  const bool is_done = ::SSL_accept(tls_.get()) == 1;
  ::ERR_clear_error();
  return is_done;
}

bool wire::send(std::string_view bytes) {
  send_without_delay(socket_.get());
  while (!bytes.empty()) {
    const std::string_view part = bytes.substr(0, most_at_once);
    const ssize_t sent = tls_ != nullptr
                             ? ::SSL_write(tls_.get(), part.data(), static_cast<int>(part.size()))
                             : ::send(socket_.get(), part.data(), part.size(), MSG_NOSIGNAL);
    if (sent <= 0) {
      ::ERR_clear_error();
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::string wire::receive() {
  std::string chunk(most_at_once, '\0');
  const ssize_t got = tls_ != nullptr
                          ? ::SSL_read(tls_.get(), chunk.data(), static_cast<int>(chunk.size()))
                          : ::recv(socket_.get(), chunk.data(), chunk.size(), 0);
  ::ERR_clear_error();
  chunk.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return chunk;
}

void wire::finish() {
  if (tls_ != nullptr) {
    ::SSL_shutdown(tls_.get());
    ::ERR_clear_error();
  }
  ::shutdown(socket_.get(), SHUT_WR);
  // A close() with unread data from the client would reset the connection.
  char chunk[4096];
  while (::recv(socket_.get(), chunk, sizeof chunk, 0) > 0) {
  }
}

void wire::reset() {
  const std::lock_guard lock(mutex_);
  const linger at_once{.l_onoff = 1, .l_linger = 0};
  ::setsockopt(socket_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  socket_.close();
}

void wire::interrupt() {
  const std::lock_guard lock(mutex_);
  if (socket_.is_open()) {
    ::shutdown(socket_.get(), SHUT_RDWR);
  }
}

}  // namespace zot::test
