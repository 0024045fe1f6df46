// SPDX-License-Identifier: Apache-2.0
// Reports the state of this process to a service manager, as datagrams to the socket that
// NOTIFY_SOCKET names.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace zotconf {

class notifier {
 public:
  using clock = std::chrono::steady_clock;

  // Removes NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID from the environment, because they are
  // meant for this process and not for the commands it runs. Without a socket nothing is sent.
  notifier();

  void ready() const { send("READY=1"); }
  void stopping() const { send("STOPPING=1"); }
  // Sends a status text for people.
  void tell_status(std::string_view text) const;

  // When the next watchdog message is due, two per watchdog interval; time_point::max() without a
  // watchdog.
  [[nodiscard]] clock::time_point next_sign() const { return next_sign_; }
  // Sends the watchdog message when it is due.
  void show_life(clock::time_point now);

 private:
  void send(const std::string &message) const;

  std::string socket_;  // empty: none
  std::optional<std::chrono::microseconds> watchdog_;
  clock::time_point next_sign_ = clock::time_point::max();
};

}  // namespace zotconf
