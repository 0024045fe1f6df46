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

// Throws with the text when a condition doesn't hold.
void require(bool holds, const std::string &text);

// A client of the library with folders of its own. Whatever it does is checked; what doesn't hold
// is thrown.
class host {
 public:
  host(std::string root, const services &offered);
  host(const host &) = delete;
  host &operator=(const host &) = delete;

  [[nodiscard]] const std::string &root() const { return root_; }
  // Folders with another name from now on; they are created.
  void move_to(const std::string &root);
  // Where messages go from the next start on; the capture unless told.
  void log_to(const zot_log_ctl &ctl) { log_ctl_ = ctl; }
  [[nodiscard]] const log_capture &log() const { return log_; }
  // The published configuration.
  void offer(char letter) const;

  [[nodiscard]] bool start();
  void stop() { handle_.reset(); }
  [[nodiscard]] zot_ctx *handle() const { return handle_.get(); }
  [[nodiscard]] returned_list get(char letter, std::uint32_t mask = every_change) const;

  // Steps that have to succeed.
  void get_whole(char letter) const;
  void commit_whole(char letter) const;
  void roll_back_whole(char in_force, char refused) const;

  // Creation, get, commit, another publication, get, roll-back, release. The process is afterwards
  // what it was before.
  void whole_cycle(char first = 'a', char second = 'b');
  // The same, as far as the situation allows: a step that fails has to say so, and ends it. Returns
  // what the failure was, empty when there was none.
  [[nodiscard]] std::string attempt(char first = 'a', char second = 'b');
  // A cycle with two further configurations, once nothing stands in the way any more.
  void recover();
  // An attempt within a situation, and the recovery from it.
  std::string attempt_within(const std::function<void()> &enter,
                             const std::function<void()> &leave);
  // Takes what must not change from here on. Situations that are entered before whole_cycle() need
  // no such mark.
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
  // Whether this machine lets it be tried; none: it does.
  bool (*is_possible)() = nullptr;
};

// Runs something in a process of its own and returns its wait status. What it throws goes on.
int in_own_process(const std::function<void()> &work);

[[nodiscard]] std::vector<situation> signal_situations();
[[nodiscard]] std::vector<situation> stream_situations();
[[nodiscard]] std::vector<situation> place_situations();
[[nodiscard]] std::vector<situation> root_situations();
[[nodiscard]] std::vector<situation> limit_situations();
[[nodiscard]] std::vector<situation> environment_situations();
[[nodiscard]] std::vector<situation> descriptor_situations();

}  // namespace zot::test
