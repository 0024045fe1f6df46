// SPDX-License-Identifier: Apache-2.0
// The operations that the sweeps disturb: their starting states, and what has to hold afterwards.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/faults/calls/client.hpp"

namespace zot::test {

// What lies in the folders of an element before an operation.
enum class stage { empty, committed, settled, interrupted };

struct operation {
  const char *name;
  stage from;
  // Everything up to the operation itself; throws when a step fails.
  void (*prepare)(session &client);
  int (*act)(session &client);
  // Of what was done; throws when something is missing.
  void (*check_done)(session &client);
  // Reaches the published configuration, whatever the operation left.
  void (*reach)(session &client);
  char published;  // what reach() ends at
  // What may be in force after a failure: in memory, by a cached get of the same process, and by
  // that of a process that starts anew.
  const char *in_memory;
  const char *returned;
  const char *restarted;
  // What such a process may find when the operation has succeeded.
  const char *completed;
  // Whether a call that failed may be made again in the same cycle.
  bool is_repeatable;
  // Whether every file that it has left outlives a loss of power right after it. What is in force
  // does so in any case.
  bool lasts;
  // Of a commit: rolls it back after it has failed, with all that has to hold then, and goes on to
  // where reach() can begin.
  void (*refuse)(session &client) = nullptr;
};

[[nodiscard]] const std::vector<operation> &operations();

// A client that has the configuration in force in memory; and one that waits for its verdict on the
// next one.
void prepare_loaded(session &client);
void prepare_next(session &client);

// Whether a sweep of an operation held; an operation that fails undisturbed doesn't end the others.
[[nodiscard]] bool succeeds(const operation &swept, const std::function<bool()> &sweep);

// What goes wrong while an operation runs.
struct disturbance {
  std::function<void()> begin;
  std::function<void()> end;
};

// How it goes on after an operation that was disturbed: with a get; if it failed, with the same
// call again or with a roll-back; or with the end of the process.
enum class way_on { get, repeat, roll_back, new_process };

// Does an operation while it is disturbed, and what has to hold in the same process afterwards: a
// refusal is clear, what is in force is whole, and the published configuration is reached. Returns
// through the page what the call returned.
void disturb(session &client, const operation &disturbed, const disturbance &trouble,
             gate_page &page, way_on then);

// Runs a client without a disturbance; throws with its report when it fails.
void run_undisturbed(gate_page &page, const std::string &root, const services &offered,
                     const std::function<void(session &)> &steps);

// What a process that starts anew, without a service, has in force: one of those that are allowed.
// What a commit or its undoing keeps between two processes is gone then.
char check_restarted(session &client, const std::string &allowed);
[[nodiscard]] char restart(gate_page &page, const std::string &root, const services &offered,
                           const std::string &allowed);

// The cache holds a configuration, and nothing of a commit that is not finished.
void check_settled(const file_tree &disk, char letter);

// The folders of an element at a stage: made by the library itself, undisturbed.
[[nodiscard]] file_tree make_stage(stage wanted, const std::string &root, const services &offered);

}  // namespace zot::test
