// SPDX-License-Identifier: Apache-2.0
// SIGINT and SIGTERM end the checks, and the temporary files are removed.
#pragma once

#include <signal.h>

#include <array>
#include <exception>

namespace zotconf {

// No std::runtime_error, so that it is not taken for what a service did wrong.
class stopped_by_signal : public std::exception {
 public:
  [[nodiscard]] const char *what() const noexcept override { return "interrupted"; }
};

// While an object exists, the two signals are recorded and do not end the process.
class stop_request {
 public:
  stop_request();
  stop_request(const stop_request &) = delete;
  stop_request &operator=(const stop_request &) = delete;
  ~stop_request();

  [[nodiscard]] static bool has_come();
  // Throws stopped_by_signal.
  static void expect_none();

 private:
  std::array<struct sigaction, 2> before_{};
};

}  // namespace zotconf
