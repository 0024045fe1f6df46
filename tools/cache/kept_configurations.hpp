// SPDX-License-Identifier: Apache-2.0
// Which configurations a cache has in force and has refused. A K is read again only if its files
// have changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/cache/cache.hpp"

namespace zotconf {

struct configuration_name {
  std::string digest;     // SHA-256 of K, 64 digits
  std::string config_id;  // empty: K has none

  bool operator==(const configuration_name &) const = default;
};

struct named_configurations {
  std::optional<configuration_name> in_force;
  std::optional<configuration_name> refused;
};

class kept_configurations {
 public:
  explicit kept_configurations(cache_paths paths) : paths_(std::move(paths)) {}

  // Throws std::system_error if there is no cache, or if it cannot be read. In dev mode nothing is
  // in force or refused.
  const named_configurations &read();

 private:
  // Changes when a file is written or replaced.
  struct file_mark {
    uint64_t inode = 0;
    int64_t size = -1;
    int64_t changed = 0;  // nanoseconds

    bool operator==(const file_mark &) const = default;
  };

  static file_mark mark_of(const fs::path &path);
  [[nodiscard]] std::vector<file_mark> marks() const;

  cache_paths paths_;
  std::vector<file_mark> marks_;
  named_configurations found_;
};

}  // namespace zotconf
