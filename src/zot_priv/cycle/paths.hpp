// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace zot {

// Both roots before they are accepted. A refused root changes no directory of the handle.
struct wanted_roots {
  char conf[ZOT_PATH_SIZE];
  char tmp[ZOT_PATH_SIZE];
};

// Which directories below the roots have a path that fits.
struct below_roots {
  bool knowledge;
  bool config;
};

// Sets the four directories of a handle. Both roots must have been checked.
below_roots set_roots(zot_ctx &handle, const char *conf_root, const char *tmp_root);

// Gives the handle back the directories of an earlier get while this object lives, because a later
// reload may have set others. A commit or rollback needs those of the get that it follows; a cached
// get needs those of the get whose list it returns again.
class folders_of_get {
 public:
  explicit folders_of_get(zot_ctx &handle, bool are_wanted = true);
  folders_of_get(const folders_of_get &) = delete;
  folders_of_get &operator=(const folders_of_get &) = delete;
  ~folders_of_get();

  // False when out of memory. The handle then keeps the directories that it had.
  [[nodiscard]] bool has_memory() const { return has_memory_; }

 private:
  zot_ctx &handle_;
  c_ptr<wanted_roots> before_;
  bool has_memory_ = true;
};

}  // namespace zot
