// SPDX-License-Identifier: Apache-2.0
// The advisory locks that keep the processes of one cache apart, held for the time of a call.
#pragma once

#include "zot_conf.h"

namespace zot {

// Locks the persistent directory, then the scratch directory, always in this order. A call inside
// another one of the same handle finds them locked and changes nothing. In dev mode there is
// nothing to lock.
class cache_lock {
 public:
  explicit cache_lock(zot_ctx &handle);
  cache_lock(const cache_lock &) = delete;
  cache_lock &operator=(const cache_lock &) = delete;
  ~cache_lock();

  // Waits as long as ZOT_PARM_TIMEOUT says. ZOT_OK, or a status recorded for the operation.
  int acquire(const char *func);

  // Takes the lock of the persistent directory alone, and does not wait.
  bool try_acquire();

 private:
  zot_ctx &handle_;
  bool is_held_ = false;
  int out_of_sight_before_;
};

// Whether the scratch directory that was locked is still where others look for it. It may be lost
// at any time, and whoever makes it anew waits for nobody. True without a lock.
bool is_scratch_held(const zot_ctx &handle);

// Lets the commands that are started meanwhile hold the locks too. A process may be killed while
// its command goes on: nobody may touch what that command still writes.
class locks_for_commands {
 public:
  explicit locks_for_commands(const zot_ctx &handle);
  locks_for_commands(const locks_for_commands &) = delete;
  locks_for_commands &operator=(const locks_for_commands &) = delete;
  ~locks_for_commands();

 private:
  const zot_ctx &handle_;
  int flags_[2] = {-1, -1};
};

}  // namespace zot
