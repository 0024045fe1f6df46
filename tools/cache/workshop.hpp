// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

#include "tools/cache/cache.hpp"
#include "tools/cache/cache_owner.hpp"
#include "tools/cache/examine.hpp"
#include "tools/files/file_io.hpp"
#include "utilities/owner.hpp"

namespace zotconf {

// Locks a cache as the library does. Throws std::exception when it stays locked for that long.
zot::descriptor lock_cache(const fs::path &root, std::chrono::milliseconds wait);

// A folder inside the cache's file system, so that what is good there can be renamed to its place.
// One repair works at a time, and none beside a process that changes the cache.
class workshop {
 public:
  // No call of a process that uses the cache holds it longer, as long as its service answers.
  static constexpr std::chrono::milliseconds longest_wait{30'000};

  // Throws std::runtime_error when the cache stays locked so long, or is not as it was found.
  workshop(const cache_paths &paths, const findings &found,
           std::chrono::milliseconds wait = longest_wait);
  workshop(const workshop &) = delete;
  workshop &operator=(const workshop &) = delete;
  ~workshop();

  [[nodiscard]] const fs::path &folder() const { return folder_; }

  // Everything written so far is on the medium.
  void flush() const;

  // Puts a file of the folder in its place, whatever stands there.
  void place(const fs::path &from, const fs::path &to);

  // The same with a copy, for what more than one place needs.
  void place_copy(const fs::path &from, const fs::path &to);

  // Makes a path a directory. False when a symbolic link stands there: what lies behind it is not
  // the cache's.
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
