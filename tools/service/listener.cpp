// SPDX-License-Identifier: Apache-2.0
#include "tools/service/listener.hpp"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace zotconf {
namespace {

using addresses = std::unique_ptr<addrinfo, zot::releaser<::freeaddrinfo>>;

constexpr const char *own_address =
    "--bind needs an address of this machine, such as 127.0.0.1, ::1 or 0.0.0.0";

struct hint {
  int error;
  const char *text;
};

constexpr std::array<hint, 3> hints = {{
    {EADDRINUSE, "another program uses this port; --port 0 picks a free one"},
    {EADDRNOTAVAIL, own_address},
    {EACCES, "ports below 1024 need root privileges; choose another one with --port"},
}};

std::string with_hint(int error) {
  std::string text = std::generic_category().message(error);
  for (const hint &each : hints) {
    if (each.error == error) {
      text += std::string(" (") + each.text + ")";
    }
  }
  return text;
}

[[noreturn]] void fail(const std::string &host, int port, const std::string &why) {
  throw std::runtime_error("cannot listen on " + host_and_port(host, port) + ": " + why);
}

addresses resolve(const std::string &host, int port) {
  addrinfo wanted{};
  wanted.ai_family = AF_UNSPEC;
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo *found = nullptr;
  const int error = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &wanted, &found);
  if (error != 0) {
    fail(host, port, std::string(::gai_strerror(error)) + " (" + own_address + ")");
  }
  return addresses(found);
}

void set_option(int socket, int level, int name, int value) {
  static_cast<void>(::setsockopt(socket, level, name, &value, sizeof value));
}

// Returns a closed descriptor on failure; errno has the reason.
zot::descriptor try_address(const addrinfo &where) {
  zot::descriptor socket(::socket(where.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket.is_open()) {
    return socket;
  }
  // Address reuse lets a restarted service bind at once. Port sharing would let two services answer
  // on one port in turns.
  set_option(socket.get(), SOL_SOCKET, SO_REUSEADDR, 1);
  if (where.ai_family == AF_INET6) {
    set_option(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, 0);
  }
  const bool listens = ::bind(socket.get(), where.ai_addr, where.ai_addrlen) == 0 &&
                       ::listen(socket.get(), SOMAXCONN) == 0;
  return listens ? std::move(socket) : zot::descriptor(-1);
}

int port_of(int socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (::getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot read the address of a socket");
  }
  return address.ss_family == AF_INET6
             ? ntohs(reinterpret_cast<const sockaddr_in6 *>(&address)->sin6_port)
             : ntohs(reinterpret_cast<const sockaddr_in *>(&address)->sin_port);
}

}  // namespace

std::string host_and_port(const std::string &host, int port) {
  const bool is_ipv6 = host.find(':') != std::string::npos;
  return (is_ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

listener listen_on(const std::string &host, int port) {
  const addresses found = resolve(host, port);
  int error = EADDRNOTAVAIL;
  for (const addrinfo *each = found.get(); each != nullptr; each = each->ai_next) {
    zot::descriptor socket = try_address(*each);
    if (socket.is_open()) {
      const int bound = port_of(socket.get());
      return {.socket = std::move(socket), .port = bound};
    }
    error = errno;
  }
  fail(host, port, with_hint(error));
}

}  // namespace zotconf
