// SPDX-License-Identifier: Apache-2.0
// Runs the built zotconf program.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/files.hpp"

namespace zot::test {

using environment = std::map<std::string, std::string>;

struct finished {
  int status = -1;  // exit status; 128 and the number for a signal
  std::string out;
  std::string err;
};

// Runs zotconf to its end with these variables added to the environment.
[[nodiscard]] finished run_zotconf(const std::vector<std::string> &args,
                                   const environment &variables = {});

// The same by a process that permissions count for, whoever runs the test.
[[nodiscard]] finished run_zotconf_as_user(const std::vector<std::string> &args,
                                           const environment &variables);

// zotconf, running beside the test.
class background {
 public:
  background(const std::vector<std::string> &args, const environment &variables);
  background(const background &) = delete;
  background &operator=(const background &) = delete;
  ~background();

  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] std::string out() const;
  [[nodiscard]] std::string err() const;
  // Waits until standard output has a text so often; throws when it takes longer than a minute.
  void wait_for(const std::string &text, size_t times = 1) const;
  void send(int signal) const;
  // Waits for the end. Returns the exit status; 128 and the number for a signal.
  int wait();

 private:
  temp_dir dir_;
  pid_t pid_ = -1;
};

// Waits until a condition holds; throws when it takes longer than a minute.
void wait_until(const std::function<bool()> &condition, const std::string &what);

// How often a text holds another.
[[nodiscard]] size_t count_of(const std::string &part, const std::string &text);

// `zotconf serve` on a free port of the loopback host.
class serving {
 public:
  explicit serving(const std::string &publication, const std::vector<std::string> &more = {});
  serving(const serving &) = delete;
  serving &operator=(const serving &) = delete;
  ~serving();

  [[nodiscard]] std::uint16_t port() const { return port_; }
  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] std::string output() const;
  // Sends a signal and waits for the end. Returns the exit status.
  int stop(int signal);

 private:
  temp_dir dir_;
  pid_t pid_ = -1;
  std::uint16_t port_ = 0;
};

// `zotconf publish` of a folder for the access point "001122334455".
[[nodiscard]] finished publish(const std::string &source, const std::string &publication,
                               const std::vector<std::string> &more = {});

}  // namespace zot::test
