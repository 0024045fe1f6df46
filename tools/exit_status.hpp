// SPDX-License-Identifier: Apache-2.0
// Exit statuses of the commands. Scripts branch on them, so the numbers stay.
#pragma once

namespace zotconf {

enum exit_status : int {
  exit_success = 0,  // published or unchanged; stopped by a signal; new or cached configuration
  exit_failure = 1,
  exit_usage = 2,
  exit_refused = 3,            // publish: a source file that cannot be published
  exit_no_update = 3,          // cycle: the configuration in force is the published one
  exit_same_as_corrupted = 4,  // cycle: the service still offers what was rolled back
  exit_rolled_back = 5         // cycle: a new configuration was refused
};

}  // namespace zotconf
