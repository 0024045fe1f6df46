// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "tools/cache/cache.hpp"
#include "tools/cache/cache_owner.hpp"
#include "tools/cache/examine.hpp"
#include "tools/files/file_io.hpp"
#include "utilities/owner.hpp"

namespace zotconf {

// Locks a cache as the library does. Throws std::exception when the cache stays locked longer than
// `wait`.
zot::descriptor lock_cache(const fs::path &root, std::chrono::milliseconds wait);

// A temporary folder in the cache's file system, so that repaired files can be renamed to their
// place. Holds the lock of the cache, so only one repair runs, and none while another process
// changes the cache.
class workshop {
 public:
  // No call of the library holds the lock longer while its service answers.
  static constexpr std::chrono::milliseconds longest_wait{30'000};

  // Throws std::runtime_error when the cache stays locked longer than `wait`, or has changed since
  // `found`.
  workshop(const cache_paths &paths, const findings &found,
           std::chrono::milliseconds wait = longest_wait);
  workshop(const workshop &) = delete;
  workshop &operator=(const workshop &) = delete;
  ~workshop();

  [[nodiscard]] const fs::path &folder() const { return folder_; }

  // Writes everything so far to the medium.
  void flush() const;

  // Renames a file of the folder to its place and replaces whatever is there.
  void place(const fs::path &from, const fs::path &to);

  // The same with a copy, for a file that is needed in several places.
  void place_copy(const fs::path &from, const fs::path &to);

  // Makes `path` a directory. Returns false when a symbolic link is there: its target is not part
  // of the cache.
  bool make_directory(const fs::path &path);

 private:
  void take_away(const fs::path &path);

  fs::path root_;
  zot::descriptor lock_;
  fs::path folder_;
  cache_owner owner_;
  size_t taken_ = 0;
};

}  // namespace zotconf
