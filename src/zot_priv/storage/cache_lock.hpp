// SPDX-License-Identifier: Apache-2.0
// The advisory locks that keep processes on the same cache apart. They are held for the duration of
// a call.
#pragma once

#include "zot_conf.h"

namespace zot {

// Locks the persistent directory, then the scratch directory, always in this order. A nested call
// on the same handle finds them locked and changes nothing. In dev mode there is nothing to lock.
class cache_lock {
 public:
  explicit cache_lock(zot_ctx &handle);
  cache_lock(const cache_lock &) = delete;
  cache_lock &operator=(const cache_lock &) = delete;
  ~cache_lock();

  // Waits at most ZOT_PARM_TIMEOUT. Returns ZOT_OK, or a status recorded under the name of the
  // operation.
  int acquire(const char *func);

  // Takes only the lock of the persistent directory, without waiting.
  bool try_acquire();

 private:
  zot_ctx &handle_;
  bool is_held_ = false;
  int out_of_sight_before_;
};

// Whether the locked scratch directory is still the one at its path. It may be removed at any time,
// and whoever recreates it waits for no lock. True without a lock.
bool is_scratch_held(const zot_ctx &handle);

// Lets commands that are started in the meantime hold the locks too. If this process is killed
// while its command runs on, nobody else may touch what the command still writes.
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
