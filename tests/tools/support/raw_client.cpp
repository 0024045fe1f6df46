// SPDX-License-Identifier: Apache-2.0
#include "tests/tools/support/raw_client.hpp"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace zot::test {
namespace {

constexpr std::size_t at_once = 65536;

[[noreturn]] void fail(const char *what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

raw_client::raw_client(std::uint16_t port, std::chrono::seconds patience)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  timeval limit{};
  limit.tv_sec = static_cast<time_t>(patience.count());
  if (!socket_.is_open() ||
      ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
      ::connect(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
    fail("cannot connect");
  }
}

bool raw_client::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

std::string raw_client::read_some(std::size_t most) {
  std::string bytes(most, '\0');
  const ssize_t got = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
  if (got < 0 && errno != ECONNRESET) {
    fail("cannot read");
  }
  bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return bytes;
}

std::string raw_client::read_until(std::string_view text) {
  std::string bytes;
  while (!bytes.ends_with(text)) {
    const std::string more = read_some(1);
    if (more.empty()) {
      break;
    }
    bytes += more;
  }
  return bytes;
}

std::string raw_client::read(std::size_t size) {
  std::string bytes;
  while (bytes.size() < size) {
    const std::string more = read_some(std::min(size - bytes.size(), at_once));
    if (more.empty()) {
      break;
    }
    bytes += more;
  }
  return bytes;
}

std::string raw_client::read_all() {
  std::string bytes;
  for (std::string more = read_some(65536); !more.empty(); more = read_some(65536)) {
    bytes += more;
  }
  return bytes;
}

bool raw_client::is_closed_silently() {
  return read_some(1).empty();
}

}  // namespace zot::test
