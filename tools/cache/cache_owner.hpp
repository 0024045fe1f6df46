// SPDX-License-Identifier: Apache-2.0
// To whom belongs what root makes in the cache of a service that is not root.
#pragma once

#include <sys/types.h>

#include <vector>

#include "tools/cache/cache.hpp"

namespace zotconf {

// The owner and the group of the persistent directory. What root leaves to itself there, a later
// commit of the service could neither replace nor remove.
class cache_owner {
 public:
  explicit cache_owner(const fs::path &conf_root);

  // Hands over what this process has just made; links are not followed. Only root has to.
  void take(const fs::path &made) const;

 private:
  uid_t user_;
  gid_t group_;
};

// What the library makes at a start where it is missing, and was missing here.
std::vector<fs::path> missing_of_start(const cache_paths &paths);

}  // namespace zotconf
