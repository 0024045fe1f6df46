// SPDX-License-Identifier: Apache-2.0
// One run of a client of the library. It reports its result through the shared page.
#pragma once

#include <functional>
#include <string>

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/stage.hpp"
#include "tests/support/log_capture.hpp"

namespace zot::test {

// Throws an exception with this text when the condition is false.
void require(bool holds, const std::string &text);

// A client process with its own element folders, to which it points the environment.
class session {
 public:
  // In seconds. Long enough that a busy machine does not make an undisturbed step fail.
  static constexpr std::uint32_t timeout = 30;

  session(const std::string &root, const services &offered) : root_(root), offered_(offered) {}

  // A second client on the same folders.
  [[nodiscard]] session beside() const { return {root_, offered_}; }

  [[nodiscard]] bool start();
  [[nodiscard]] zot_ctx *handle() const { return handle_.get(); }

  // Gets from the service on a port.
  [[nodiscard]] returned_list get_from(std::uint16_t port, std::uint32_t mask = every_change);
  // Gets from the service that offers this configuration.
  [[nodiscard]] returned_list get(char letter, std::uint32_t mask = every_change);
  // Gets without a service.
  [[nodiscard]] returned_list get_cached();
  [[nodiscard]] int commit() const { return zot_conf_commit(handle()); }
  [[nodiscard]] int roll_back() const { return zot_conf_roll_back(handle()); }

  // The configuration in force in memory.
  [[nodiscard]] char in_force() const;
  [[nodiscard]] std::string error_text() const;
  [[nodiscard]] file_tree disk() const { return read_tree(root_); }
  [[nodiscard]] std::string log() const { return log_.dump(); }

 private:
  const std::string root_;
  const services &offered_;
  log_capture log_;
  handle_owner handle_;
};

// Steps that must succeed; they throw otherwise.
void start(session &client);
// Also checks that the returned list is the whole configuration.
void get_whole(session &client, char letter);
void commit_whole(session &client, char letter);
// Checks what is in force in memory and what a cached get returns: each must be exactly one of the
// allowed configurations, or none where that is allowed. When nothing is in force, no entry may be
// reported as deleted. Returns the configuration from the cached get.
char check_in_force(session &client, const std::string &in_memory, const std::string &returned);
// A refusal must have a negative status and an error text.
void check_refusal(const session &client, int status);

// Runs steps and writes the result to the page. Returns the exit status of the process.
[[nodiscard]] int report(gate_page &page, const std::string &root, const services &offered,
                         const std::function<void(session &)> &steps);

}  // namespace zot::test
