// SPDX-License-Identifier: Apache-2.0
// An HTTP server on a raw socket of 127.0.0.1 that sends what a test says, whatever HTTP says of
// it.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "utilities/owner.hpp"

namespace zot::test {

class scripted_server {
 public:
  // One connection, as a script sees it.
  class connection {
   public:
    connection(int fd, const std::atomic<bool> &is_over) : socket_(fd), is_over_(is_over) {}

    // Returns false when the client has closed the connection or the test is over.
    bool send(std::string_view bytes) {
      while (!bytes.empty() && !is_over_) {
        const ssize_t sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
          return false;
        }
        bytes.remove_prefix(static_cast<size_t>(sent));
      }
      return !is_over_;
    }
    // Up to the empty line; empty when the client has closed the connection or the test is over.
    std::string read_head() {
      std::string head;
      while (!head.ends_with("\r\n\r\n")) {
        pollfd waiting{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        char byte = 0;
        if (is_over_) {
          return "";
        }
        if (::poll(&waiting, 1, 20) == 1) {
          if (::recv(socket_.get(), &byte, 1, 0) != 1) {
            return "";
          }
          head += byte;
        }
      }
      return head;
    }
    // Sends nothing until the client closes the connection.
    void stay_silent() { read_head(); }

   private:
    zot::descriptor socket_;
    const std::atomic<bool> &is_over_;
  };
  // Called for each request with its head and its number, from 0 on. Returns false to close the
  // connection.
  using script = std::function<bool(connection &, const std::string &, unsigned)>;

  explicit scripted_server(script answers)
      : script_(std::move(answers)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener_.get(), reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        ::listen(listener_.get(), 64) != 0 ||
        ::getsockname(listener_.get(), reinterpret_cast<sockaddr *>(&address), &size) != 0) {
      throw std::runtime_error("cannot listen");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { accept_all(); });
  }
  scripted_server(const scripted_server &) = delete;
  scripted_server &operator=(const scripted_server &) = delete;
  ~scripted_server() {
    is_over_ = true;
    thread_.join();
    for (std::thread &each : conversations_) {
      each.join();
    }
  }

  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  [[nodiscard]] std::string place() const { return "127.0.0.1:" + std::to_string(port_); }
  [[nodiscard]] unsigned connections() const { return connections_; }
  // The heads of all requests so far.
  [[nodiscard]] std::vector<std::string> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

 private:
  void accept_all() {
    while (!is_over_) {
      pollfd waiting{.fd = listener_.get(), .events = POLLIN, .revents = 0};
      if (::poll(&waiting, 1, 20) != 1) {
        continue;
      }
      const int fd = ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
      ++connections_;
      conversations_.emplace_back([this, fd] { converse(fd); });
    }
  }
  void converse(int fd) {
    connection with(fd, is_over_);
    for (;;) {
      const std::string head = with.read_head();
      if (head.empty()) {
        return;
      }
      const unsigned number = note(head);
      if (!script_(with, head, number)) {
        return;
      }
    }
  }
  unsigned note(const std::string &head) {
    const std::lock_guard lock(mutex_);
    requests_.push_back(head);
    return static_cast<unsigned>(requests_.size() - 1);
  }

  script script_;
  zot::descriptor listener_;
  std::uint16_t port_ = 0;
  std::atomic<bool> is_over_ = false;
  std::atomic<unsigned> connections_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::list<std::thread> conversations_;
  std::thread thread_;
};

// A response with status line, headers (each with its line end) and body.
inline std::string response(const std::string &status, const std::string &headers,
                            const std::string &body) {
  return "HTTP/1.1 " + status + "\r\n" + headers +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

}  // namespace zot::test
