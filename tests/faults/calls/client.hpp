// SPDX-License-Identifier: Apache-2.0
// One run of a client of the library. It reports its findings through the shared page.
#pragma once

#include <functional>
#include <string>

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/stage.hpp"
#include "tests/support/log_capture.hpp"

namespace zot::test {

// Throws with the text when a condition doesn't hold.
void require(bool holds, const std::string &text);

// A process that uses an element's folders; its environment names them from then on.
class session {
 public:
  // In seconds. A machine that does other things too must not fail a step that nothing disturbs.
  static constexpr std::uint32_t timeout = 30;

  session(const std::string &root, const services &offered) : root_(root), offered_(offered) {}

  // Another one on the same folders.
  [[nodiscard]] session beside() const { return {root_, offered_}; }

  [[nodiscard]] bool start();
  [[nodiscard]] zot_ctx *handle() const { return handle_.get(); }

  // From the service on a port.
  [[nodiscard]] returned_list get_from(std::uint16_t port, std::uint32_t mask = every_change);
  // From the service that offers a configuration.
  [[nodiscard]] returned_list get(char letter, std::uint32_t mask = every_change);
  // Without a service.
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

// Steps that have to succeed; they throw otherwise.
void start(session &client);
// The returned list is the whole configuration.
void get_whole(session &client, char letter);
void commit_whole(session &client, char letter);
// What is in force in memory, and what a cached get returns: each is one configuration or none, of
// those that are allowed; without one in force nothing is told to be deleted. Returns what the
// cached get returned.
char check_in_force(session &client, const std::string &in_memory, const std::string &returned);
// A refusal has a negative status and says why.
void check_refusal(const session &client, int status);

// Runs steps and tells in the page how they ended; the exit status of a process.
[[nodiscard]] int report(gate_page &page, const std::string &root, const services &offered,
                         const std::function<void(session &)> &steps);

}  // namespace zot::test
