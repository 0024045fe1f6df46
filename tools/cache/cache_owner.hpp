// SPDX-License-Identifier: Apache-2.0
// The owner of files that root creates in the cache of a service that does not run as root.
#pragma once

#include <sys/types.h>

#include <vector>

#include "tools/cache/cache.hpp"

namespace zotconf {

// The user and group that own the persistent directory. If root kept its files there for itself, a
// later commit of the service could neither replace nor remove them.
class cache_owner {
 public:
  explicit cache_owner(const fs::path &conf_root);

  // Makes this user and group the owners of a file that this process has just created. Does not
  // follow links. Does nothing unless the process runs as root.
  void take(const fs::path &made) const;

 private:
  uid_t user_;
  gid_t group_;
};

// The files and directories that the library creates at a start and that do not exist yet.
std::vector<fs::path> missing_of_start(const cache_paths &paths);

}  // namespace zotconf
