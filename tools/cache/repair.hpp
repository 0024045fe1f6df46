// SPDX-License-Identifier: Apache-2.0
// Fetches again what is bad in the persistent cache, and nothing else.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/cache/examine.hpp"
#include "tools/model/names.hpp"

namespace zotconf {

// What became of one bad file.
struct repair_outcome {
  fs::path path;
  const char *result = "";  // "repaired", "not_available", "still_bad" or "not_restorable"
  std::string text;         // why it is not repaired
};

struct repair_report {
  std::vector<repair_outcome> outcomes;
  std::optional<library_status> service_error;  // with which the service ended the repair
};

// Lets the library undo an interrupted commit, as it does at a start.
repair_outcome undo_commit(const cache_paths &paths, const element &who);

// The K in force and its checksum file. Other K of the cache can be fetched from nowhere, which the
// report says of them.
repair_report repair_k(const cache_paths &paths, const element &who, const findings &found);

// The files of the configuration in force.
repair_report repair_files(const cache_paths &paths, const findings &found, const console &where);

}  // namespace zotconf
