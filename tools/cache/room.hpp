// SPDX-License-Identifier: Apache-2.0
// Whether an update fits into the free space next to the configuration in force. If not, a commit
// removes the old files first.
#pragma once

#include <cstdint>
#include <optional>

#include "tools/cache/cache.hpp"
#include "tools/output/json.hpp"

namespace zotconf {

// The file system that the cache lies on.
struct volume {
  uint64_t block_size = 1;
  uint64_t folder_size = 0;            // bytes that an empty folder takes
  uint64_t absent_k_files = 0;         // how many of the K files that a commit keeps are absent
  std::optional<uint64_t> free_bytes;  // available to this user; nullopt: no limit
  std::optional<uint64_t> free_files;  // likewise
};

// Returns nullopt when the cache does not exist.
std::optional<volume> volume_of(const cache_paths &paths);

// The space that a configuration needs on that file system.
struct room {
  uint64_t needed_bytes = 0;
  uint64_t needed_files = 0;  // includes folders, K files and what a commit keeps
  std::optional<uint64_t> free_bytes;
  std::optional<uint64_t> free_files;

  // Whether another configuration of this size fits next to it.
  [[nodiscard]] bool fits_beside() const {
    return (!free_bytes || needed_bytes <= *free_bytes) &&
           (!free_files || needed_files <= *free_files);
  }
};

room room_of(const stored_k &k, const volume &on);

// Sets the member "room" in a command's JSON; null for nullopt.
void set_room(json_node into, const std::optional<room> &told);

inline constexpr const char *room_warning =
    "an update of this size fits only if the old files are removed first; a power cut during "
    "that commit would leave no configuration";

}  // namespace zotconf
