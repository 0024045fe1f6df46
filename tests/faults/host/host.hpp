// SPDX-License-Identifier: Apache-2.0
// A process that uses the library, and the situation in which it does so.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/faults/calls/stage.hpp"
#include "tests/faults/host/process_state.hpp"
#include "tests/support/log_capture.hpp"

namespace zot::test {

// Throws an exception with this text when the condition is false.
void require(bool holds, const std::string &text);

// A client of the library with its own folders. It checks each step and throws when a check fails.
class host {
 public:
  host(std::string root, const services &offered);
  host(const host &) = delete;
  host &operator=(const host &) = delete;

  [[nodiscard]] const std::string &root() const { return root_; }
  // Creates folders with another name and uses them from now on.
  void move_to(const std::string &root);
  // Sets the log destination from the next start on; by default the messages are captured.
  void log_to(const zot_log_ctl &ctl) { log_ctl_ = ctl; }
  [[nodiscard]] const log_capture &log() const { return log_; }
  // Publishes this configuration.
  void offer(char letter) const;

  [[nodiscard]] bool start();
  void stop() { handle_.reset(); }
  [[nodiscard]] zot_ctx *handle() const { return handle_.get(); }
  [[nodiscard]] returned_list get(char letter, std::uint32_t mask = every_change) const;

  // Steps that must succeed.
  void get_whole(char letter) const;
  void commit_whole(char letter) const;
  void roll_back_whole(char in_force, char refused) const;

  // Runs creation, get, commit, another publication, get, rollback and release. Checks that the
  // state of the process is the same afterwards.
  void whole_cycle(char first = 'a', char second = 'b');
  // The same, but a step may fail if it reports a reason; the attempt ends there. Returns the
  // failure text, or an empty text on success.
  [[nodiscard]] std::string attempt(char first = 'a', char second = 'b');
  // Runs a cycle with two other configurations, after the cause of the failure has been removed.
  void recover();
  // Runs attempt() in a situation, leaves the situation, and then runs recover().
  std::string attempt_within(const std::function<void()> &enter,
                             const std::function<void()> &leave);
  // Records the process state that must not change. Not needed when the situation begins before
  // whole_cycle().
  void remember() { before_ = state_of_process(); }
  void require_unchanged(const std::string &when) const;

 private:
  void require_refusal(int status, const std::string &what) const;
  void require_one_configuration() const;
  [[nodiscard]] std::string with_text(const std::string &what, int status) const;

  std::string root_;
  const services &offered_;
  log_capture log_;
  zot_log_ctl log_ctl_;
  process_state before_;
  handle_owner handle_;
};

struct situation {
  std::string name;
  std::function<void(host &)> run;
  // Whether the library or its commands may print something.
  bool may_print = false;
  // Whether this machine can run the situation; null: every machine can.
  bool (*is_possible)() = nullptr;
};

// Runs `work` in a child process and returns its wait status. Rethrows an exception of `work`.
int in_own_process(const std::function<void()> &work);

[[nodiscard]] std::vector<situation> signal_situations();
[[nodiscard]] std::vector<situation> stream_situations();
[[nodiscard]] std::vector<situation> place_situations();
[[nodiscard]] std::vector<situation> root_situations();
[[nodiscard]] std::vector<situation> limit_situations();
[[nodiscard]] std::vector<situation> environment_situations();
[[nodiscard]] std::vector<situation> descriptor_situations();

}  // namespace zot::test
