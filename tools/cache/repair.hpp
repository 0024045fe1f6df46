// SPDX-License-Identifier: Apache-2.0
// Repairs the persistent cache: fetches the bad files again and changes nothing else.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/cache/examine.hpp"
#include "tools/model/names.hpp"

namespace zotconf {

// The result for one bad file.
struct repair_outcome {
  fs::path path;
  const char *result = "";  // "repaired", "not_available", "still_bad" or "not_restorable"
  std::string text;         // why it was not repaired
};

struct repair_report {
  std::vector<repair_outcome> outcomes;
  std::optional<library_status> service_error;  // the service's error that ended the repair
};

// Starts the library, which undoes an interrupted commit.
repair_outcome undo_commit(const cache_paths &paths, const element &who);

// Repairs the K in force and its checksum file. The other K of the cache can be restored only while
// the service offers the same K; the report says so for each.
repair_report repair_k(const cache_paths &paths, const element &who, const findings &found);

// Repairs the files of the configuration in force.
repair_report repair_files(const cache_paths &paths, const findings &found, const console &where);

}  // namespace zotconf
