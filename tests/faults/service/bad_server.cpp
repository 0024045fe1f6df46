// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/service/bad_server.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "tests/support/archive.hpp"

namespace zot::test {
namespace {

constexpr unsigned tick = 20;        // milliseconds between checks for the end
constexpr unsigned drip_pause = 20;  // milliseconds between two bytes
constexpr unsigned patience = 5000;  // milliseconds for a client to close
constexpr const char *length_name = "Content-Length: ";

void check(bool is_good, const char *what) {
  if (!is_good) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

bool is_readable(const descriptor &fd, unsigned milliseconds) {
  pollfd poll_fd{.fd = fd.get(), .events = POLLIN, .revents = 0};
  return ::poll(&poll_fd, 1, static_cast<int>(milliseconds)) > 0;
}

bool send_all(const descriptor &connection, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(connection.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::size_t body_length(const std::string &head) {
  const std::size_t at = head.find(length_name);
  return at == std::string::npos ? 0
                                 : std::stoul(head.substr(at + std::string(length_name).size()));
}

// Reads a request and returns its body; nullopt when the client closed the connection first.
std::optional<std::string> read_request(const descriptor &connection) {
  std::string request;
  char chunk[4096];
  for (;;) {
    if (const std::size_t end = request.find("\r\n\r\n"); end != std::string::npos) {
      const std::size_t begin = end + 4;
      if (request.size() - begin >= body_length(request.substr(0, begin))) {
        return request.substr(begin);
      }
    }
    const ssize_t got = ::recv(connection.get(), chunk, sizeof chunk, 0);
    if (got <= 0) {
      return std::nullopt;
    }
    request.append(chunk, static_cast<std::size_t>(got));
  }
}

// Resets the connection, whatever the peer has already received.
void reset(descriptor &connection) {
  const linger at_once{.l_onoff = 1, .l_linger = 0};
  ::setsockopt(connection.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  connection.close();
}

}  // namespace

descriptor listen_on(std::uint16_t port, std::uint16_t *taken) {
  descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  check(listener.is_open(), "socket");
  const int on = 1;
  ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *const plain = reinterpret_cast<sockaddr *>(&address);
  check(::bind(listener.get(), plain, size) == 0, "bind");
  check(::listen(listener.get(), SOMAXCONN) == 0, "listen");
  check(::getsockname(listener.get(), plain, &size) == 0, "getsockname");
  *taken = ntohs(address.sin_port);
  return listener;
}

bad_server::bad_server()
    : elsewhere_(listen_on(0, &elsewhere_port_)),
      listener_(listen_on(0, &port_)),
      thread_([this] { run(); }) {}

bad_server::~bad_server() {
  stopping_ = true;
  thread_.join();
}

bool bad_server::is_visited_elsewhere() const {
  return is_readable(elsewhere_, 0);
}

// Replaces the placeholders for ports by the ports of this service.
std::string bad_server::with_ports(std::string bytes) const {
  const std::pair<std::string, std::uint16_t> names[] = {{"@self@", port_},
                                                         {"@elsewhere@", elsewhere_port_}};
  for (const auto &[name, port] : names) {
    if (const std::size_t at = bytes.find(name); at != std::string::npos) {
      bytes.replace(at, name.size(), std::to_string(port));
    }
  }
  return bytes;
}

void bad_server::begin(std::optional<publication> published) {
  published_ = std::move(published);
  connections_ = 0;
  if (!listener_.is_open()) {
    listener_ = listen_on(port_, &port_);
  }
}

void bad_server::serve(publication published) {
  const std::lock_guard lock(mutex_);
  misdeed_ = nullptr;
  begin(std::move(published));
}

void bad_server::misbehave(const misdeed &what, request_kind at, publication published) {
  const std::lock_guard lock(mutex_);
  misdeed_ = &what;
  at_ = at;
  begin(std::move(published));
  if (what.before == before_request::refused && at == request_kind::checksum) {
    listener_.close();
  }
}

void bad_server::run() {
  while (!stopping_) {
    // Gives a thread that changes the phase a chance to take the lock.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const std::lock_guard lock(mutex_);
    if (!listener_.is_open() || !is_readable(listener_, tick)) {
      continue;
    }
    descriptor connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (connection.is_open()) {
      converse(connection);
    }
  }
}

bool bad_server::is_bad(unsigned number) const {
  return misdeed_ != nullptr && number == static_cast<unsigned>(at_);
}

void bad_server::converse(descriptor &connection) {
  // Bytes that are sent one by one must also arrive one by one.
  const int on = 1;
  ::setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const unsigned number = connections_++;
  if (is_bad(number) && misdeed_->before == before_request::reset) {
    reset(connection);
    return;
  }
  const auto request_body = read_request(connection);
  if (!request_body.has_value()) {
    return;
  }
  if (is_bad(number + 1) && misdeed_->before == before_request::refused) {
    listener_.close();
  }
  const answer good = good_answer(static_cast<request_kind>(number % request_count), *request_body);
  act(connection, is_bad(number) ? misdeed_->act(good) : send(good.whole()));
}

answer bad_server::good_answer(request_kind kind, const std::string &request_body) const {
  std::string body;
  switch (kind) {
    case request_kind::checksum:
      body = published_->checksum_text();
      break;
    case request_kind::k:
      body = published_->k_text();
      break;
    case request_kind::archive:
      body = archive_of(*published_, requested_names(request_body));
      break;
  }
  return {.head = std::string(ok_line) + "Last-Modified: Tue, 14 Nov 2023 22:13:20 GMT\r\n" +
                  length_name + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n",
          .body = body};
}

void bad_server::act(descriptor &connection, const script &steps) {
  for (const step &one : steps) {
    if (!perform(connection, one)) {
      return;
    }
  }
  // A close() with unread data from the client would reset the connection.
  ::shutdown(connection.get(), SHUT_WR);
  wait_for_hang_up(connection, patience);
}

// Returns false when the connection has ended.
bool bad_server::perform(descriptor &connection, const step &one) {
  switch (one.what) {
    case step::kind::send: {
      const std::string bytes = with_ports(one.bytes);
      for (std::uint64_t sent = 0; sent < one.times; ++sent) {
        if (stopping_ || !send_all(connection, bytes)) {
          return false;
        }
      }
      return true;
    }
    case step::kind::drip:
      return std::ranges::all_of(one.bytes, [&](char byte) {
        const bool is_sent = !stopping_ && send_all(connection, std::string_view(&byte, 1));
        std::this_thread::sleep_for(std::chrono::milliseconds(drip_pause));
        return is_sent;
      });
    case step::kind::stall:
      wait_for_hang_up(connection, UINT32_MAX);
      return false;
    case step::kind::reset:
      reset(connection);
      return false;
  }
  return false;
}

void bad_server::wait_for_hang_up(const descriptor &connection, unsigned milliseconds) const {
  char chunk[4096];
  for (unsigned waited = 0; !stopping_ && waited < milliseconds; waited += tick) {
    if (is_readable(connection, tick) && ::recv(connection.get(), chunk, sizeof chunk, 0) <= 0) {
      return;
    }
  }
}

}  // namespace zot::test
