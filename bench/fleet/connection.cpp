// SPDX-License-Identifier: Apache-2.0
#include "bench/fleet/connection.hpp"

#include <linux/tcp.h>
#include <openssl/err.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace {

constexpr size_t longest_answer = 16384;

[[noreturn]] void fail(const char *what) {
  throw std::system_error(errno, std::generic_category(), what);
}

template <class Value>
void set_option(int socket, int level, int option, const Value &value) {
  if (setsockopt(socket, level, option, &value, sizeof value) != 0) {
    fail("setsockopt");
  }
}

// The value of a header; empty if there is none. nginx writes the names as given here.
std::string_view header(std::string_view head, std::string_view name) {
  const size_t begin = head.find(name);
  if (begin == std::string_view::npos) {
    return {};
  }
  const std::string_view rest = head.substr(begin + name.size());
  return rest.substr(0, rest.find("\r\n"));
}

template <class Number>
Number number_in(std::string_view text) {
  Number number = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc()) {
    throw std::runtime_error("no number in the answer");
  }
  return number;
}

// The result of a call for the socket itself.
std::optional<size_t> moved_bytes(ssize_t result, const char *what) {
  if (result >= 0) {
    return static_cast<size_t>(result);
  }
  if (errno == EAGAIN) {
    return std::nullopt;
  }
  fail(what);
}

// The result of a call for TLS; true if it succeeded, false if it has to wait.
bool has_succeeded(SSL *tls, int result, const char *what) {
  if (result > 0) {
    return true;
  }
  const int error = SSL_get_error(tls, result);
  if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
    return false;
  }
  const unsigned long reason = ERR_get_error();
  ERR_clear_error();
  const char *const text = reason == 0 ? nullptr : ERR_reason_error_string(reason);
  throw std::runtime_error(std::string(what) + ": " + (text == nullptr ? "connection lost" : text));
}

}  // namespace

connection::socket_owner::~socket_owner() {
  const linger reset = {.l_onoff = 1, .l_linger = 0};
  setsockopt(number_, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  ::close(number_);
}

void connection::close() {
  tls_.reset();
  socket_.reset();
  state_ = state::idle;
}

void connection::open(int poller, uint64_t id) {
  const int number = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (number < 0) {
    fail("socket");
  }
  socket_ = std::make_unique<socket_owner>(number);
  set_option(number, IPPROTO_TCP, TCP_NODELAY, 1);
  const auto *const address = reinterpret_cast<const sockaddr *>(&server_->address);
  if (connect(number, address, sizeof server_->address) != 0 && errno != EINPROGRESS) {
    fail("connect");
  }
  epoll_event event = {.events = EPOLLIN | EPOLLOUT | EPOLLET, .data = {.u64 = id}};
  if (epoll_ctl(poller, EPOLL_CTL_ADD, number, &event) != 0) {
    fail("epoll_ctl");
  }
  if (server_->tls == nullptr) {
    state_ = state::sending;
    return;
  }
  tls_.reset(SSL_new(server_->tls));
  if (!tls_ || SSL_set_fd(tls_.get(), number) != 1) {
    throw std::runtime_error("no TLS connection");
  }
  SSL_set_connect_state(tls_.get());
  state_ = state::shaking;
}

void connection::ask(const std::string &request, int poller, uint64_t id) {
  output_ = request;
  input_.clear();
  if (socket_) {
    state_ = state::sending;
  } else {
    open(poller, id);
  }
}

bool connection::progress() {
  try {
    return advance();
  } catch (const std::exception &) {
    close();
    throw;
  }
}

bool connection::advance() {
  if (state_ == state::shaking && !shake()) {
    return false;
  }
  if (state_ == state::sending && !send_rest()) {
    return false;
  }
  return state_ == state::receiving && receive();
}

bool connection::shake() {
  if (!has_succeeded(tls_.get(), SSL_do_handshake(tls_.get()), "TLS handshake")) {
    return false;
  }
  state_ = state::sending;
  return true;
}

std::optional<size_t> connection::write_some() {
  if (!tls_) {
    return moved_bytes(::send(socket_->number(), output_.data(), output_.size(), MSG_NOSIGNAL),
                       "send");
  }
  size_t sent = 0;
  const int result = SSL_write_ex(tls_.get(), output_.data(), output_.size(), &sent);
  return has_succeeded(tls_.get(), result, "TLS send") ? std::optional(sent) : std::nullopt;
}

std::optional<size_t> connection::read_some(char *buffer, size_t size) {
  if (!tls_) {
    return moved_bytes(::recv(socket_->number(), buffer, size, 0), "receive");
  }
  size_t received = 0;
  const int result = SSL_read_ex(tls_.get(), buffer, size, &received);
  return has_succeeded(tls_.get(), result, "TLS receive") ? std::optional(received) : std::nullopt;
}

bool connection::send_rest() {
  while (!output_.empty()) {
    const std::optional<size_t> sent = write_some();
    if (!sent) {
      return false;
    }
    output_.erase(0, *sent);
  }
  state_ = state::receiving;
  return true;
}

bool connection::receive() {
  std::array<char, 4096> buffer;
  while (!is_complete()) {
    const std::optional<size_t> received = read_some(buffer.data(), buffer.size());
    if (!received) {
      return false;
    }
    if (*received == 0 || input_.size() > longest_answer) {
      throw std::runtime_error("the server closed the connection or sent too much");
    }
    input_.append(buffer.data(), *received);
  }
  state_ = state::idle;
  return true;
}

bool connection::is_complete() {
  const size_t head_size = input_.find("\r\n\r\n");
  if (head_size == std::string::npos) {
    return false;
  }
  const std::string_view head = std::string_view(input_).substr(0, head_size);
  answer_.status = number_in<int>(header(head, "HTTP/1.1 "));
  answer_.etag = header(head, "\r\nETag: ");
  const size_t body =
      answer_.status == 304 ? 0 : number_in<size_t>(header(head, "\r\nContent-Length: "));
  return input_.size() >= head_size + 4 + body;
}

tcp_traffic connection::traffic() const {
  tcp_info info = {};
  socklen_t size = sizeof info;
  if (!socket_ || getsockopt(socket_->number(), IPPROTO_TCP, TCP_INFO, &info, &size) != 0) {
    return {};
  }
  return {.payload = info.tcpi_bytes_acked + info.tcpi_bytes_received,
          .frames = uint64_t{info.tcpi_segs_out} + info.tcpi_segs_in};
}
