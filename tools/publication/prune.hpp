// SPDX-License-Identifier: Apache-2.0
// `zotconf prune`: removes the files of a publication folder that no K names.
#pragma once

#include <chrono>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct prune_options {
  fs::path publication;
  std::chrono::milliseconds grace{};  // 0: remove files of any age
  bool dry_run = false;
};

// Removes nothing when a K cannot be read. Returns an exit status. Throws std::exception when a
// file cannot be removed.
int run_prune(const prune_options &options, const console &where);

}  // namespace zotconf
