// SPDX-License-Identifier: Apache-2.0
#include "tools/element/notify.hpp"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "utilities/owner.hpp"

namespace zotconf {
namespace {

using namespace std::chrono_literals;

std::string take_variable(const char *name) {
  const char *const value = std::getenv(name);
  std::string result = value != nullptr ? value : "";
  ::unsetenv(name);
  return result;
}

// Returns 0 unless the text is a number above 0.
int64_t parse_count(std::string_view text) {
  int64_t count = 0;
  const char *const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, count);
  return error == std::errc() && stopped == end && count > 0 ? count : 0;
}

struct address {
  sockaddr_un name{};
  socklen_t size = 0;
};

// Accepts a path, or a name that begins with '@' for an abstract socket; nullopt for anything else.
std::optional<address> address_of(std::string_view socket) {
  address result;
  if (socket.size() < 2 || (socket[0] != '/' && socket[0] != '@') ||
      socket.size() >= sizeof result.name.sun_path) {
    return std::nullopt;
  }
  result.name.sun_family = AF_UNIX;
  std::ranges::copy(socket, result.name.sun_path);
  const bool is_path = socket[0] == '/';
  if (!is_path) {
    result.name.sun_path[0] = '\0';
  }
  result.size =
      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket.size() + (is_path ? 1 : 0));
  return result;
}

}  // namespace

notifier::notifier() : socket_(take_variable("NOTIFY_SOCKET")) {
  const int64_t interval = parse_count(take_variable("WATCHDOG_USEC"));
  const std::string owner = take_variable("WATCHDOG_PID");
  const bool is_ours = owner.empty() || parse_count(owner) == ::getpid();
  if (interval > 0 && is_ours && !socket_.empty()) {
    // Limits for values that make no sense: one too short to pause between two messages, or one too
    // long for the clock.
    watchdog_ =
        std::clamp<std::chrono::microseconds>(std::chrono::microseconds(interval), 1ms, 24h);
    next_sign_ = clock::now();
  }
}

void notifier::tell_status(std::string_view text) const {
  std::string line(text);
  // A newline would start another message.
  std::ranges::replace(line, '\n', ' ');
  send("STATUS=" + line);
}

void notifier::show_life(clock::time_point now) {
  if (now >= next_sign_) {
    send("WATCHDOG=1");
    next_sign_ = now + *watchdog_ / 2;
  }
}

// If a message cannot be delivered, it is lost: the work does not depend on the service manager.
void notifier::send(const std::string &message) const {
  const std::optional<address> to = address_of(socket_);
  if (!to) {
    return;
  }
  const zot::descriptor fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (fd.is_open()) {
    // A service manager that does not read delays this process by at most a second.
    const timeval patience{.tv_sec = 1, .tv_usec = 0};
    ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    static_cast<void>(::sendto(fd.get(), message.data(), message.size(), MSG_NOSIGNAL,
                               reinterpret_cast<const sockaddr *>(&to->name), to->size));
  }
}

}  // namespace zotconf
