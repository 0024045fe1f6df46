// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace zot {

// Both roots before they count: a root that is refused changes no directory of the handle.
struct wanted_roots {
  char conf[ZOT_PATH_SIZE];
  char tmp[ZOT_PATH_SIZE];
};

// Which directories below the roots have room for their whole names.
struct below_roots {
  bool knowledge;
  bool config;
};

// Fills the four directories of a handle. Both roots have been checked.
below_roots set_roots(zot_ctx &handle, const char *conf_root, const char *tmp_root);

// The directories of the get that a commit or roll-back answers, or whose list a cached get hands
// out again, in place of those that a later reload may have set.
class folders_of_get {
 public:
  explicit folders_of_get(zot_ctx &handle, bool are_wanted = true);
  folders_of_get(const folders_of_get &) = delete;
  folders_of_get &operator=(const folders_of_get &) = delete;
  ~folders_of_get();

  // Without memory the handle keeps the directories that it had.
  [[nodiscard]] bool has_memory() const { return has_memory_; }

 private:
  zot_ctx &handle_;
  c_ptr<wanted_roots> before_;
  bool has_memory_ = true;
};

}  // namespace zot
