// SPDX-License-Identifier: Apache-2.0
// The operations that the sweeps disturb: their initial states, and the checks afterwards.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/faults/calls/client.hpp"

namespace zot::test {

// What the folders of an element contain before an operation.
enum class stage { empty, committed, settled, interrupted };

struct operation {
  const char *name;
  stage from;
  // Everything before the operation itself; throws when a step fails.
  void (*prepare)(session &client);
  int (*act)(session &client);
  // Checks the result of a successful operation; throws when something is missing.
  void (*check_done)(session &client);
  // Reaches the published configuration from any state that the operation can leave.
  void (*reach)(session &client);
  char published;  // the final configuration of reach()
  // What may be in force after a failure: in memory, returned by a cached get of the same process,
  // and returned by a cached get of a new process.
  const char *in_memory;
  const char *returned;
  const char *restarted;
  // What a new process may find after success.
  const char *completed;
  // Whether a failed call may be repeated in the same cycle.
  bool is_repeatable;
  // Whether all files that it has written survive a power loss right after it. The configuration in
  // force always does.
  bool lasts;
  // For a commit: rolls back after a failure, makes the checks for that case, and continues to
  // where reach() can begin.
  void (*refuse)(session &client) = nullptr;
};

[[nodiscard]] const std::vector<operation> &operations();

// Prepare a client with the configuration in force in memory, and a client that has got the next
// configuration and has neither committed nor rolled back.
void prepare_loaded(session &client);
void prepare_next(session &client);

// Whether a sweep of an operation passed. When an operation fails undisturbed, the other sweeps
// still run.
[[nodiscard]] bool succeeds(const operation &swept, const std::function<bool()> &sweep);

// A disturbance during an operation.
struct disturbance {
  std::function<void()> begin;
  std::function<void()> end;
};

// How to continue after a disturbed operation: with a get; if it failed, with the same call again
// or with a rollback; or with a new process.
enum class way_on { get, repeat, roll_back, new_process };

// Runs an operation under a disturbance and makes the checks in the same process: an error is
// clear, the configuration in force is complete, and the published configuration can be reached.
// Stores the status of the call in the page.
void disturb(session &client, const operation &disturbed, const disturbance &trouble,
             gate_page &page, way_on then);

// Runs a client without a disturbance. Throws with its report when it fails.
void run_undisturbed(gate_page &page, const std::string &root, const services &offered,
                     const std::function<void(session &)> &steps);

// Checks that a new process, without a service, has one of the allowed configurations in force, and
// that nothing of an unfinished commit or undo is left. Returns that configuration.
char check_restarted(session &client, const std::string &allowed);
[[nodiscard]] char restart(gate_page &page, const std::string &root, const services &offered,
                           const std::string &allowed);

// Checks that the cache has this configuration and nothing of an unfinished commit.
void check_settled(const file_tree &disk, char letter);

// Creates the folders of an element in this state, with the library itself and without disturbance.
[[nodiscard]] file_tree make_stage(stage wanted, const std::string &root, const services &offered);

}  // namespace zot::test
