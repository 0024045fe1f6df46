// SPDX-License-Identifier: Apache-2.0
// Keeps the archive that was made last. The processes of an element request the same files one
// after the other, and the archive is then made once.
#pragma once

#include <chrono>
#include <compare>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "tools/publication/served_files.hpp"
#include "tools/service/http_types.hpp"

namespace zotconf {

// Safe to use from several threads.
class archive_cache {
 public:
  using clock = std::chrono::steady_clock;
  using maker = std::function<http_file()>;

  static constexpr std::chrono::minutes kept_for{5};

  // The archives of these files. The compression is 0 (none) to 9 (smallest).
  archive_cache(const served_files &files, int compression)
      : files_(files), compression_(compression) {}

  [[nodiscard]] int compression() const { return compression_; }

  // Returns the kept archive if it has this key and no other publication was put into service since
  // it was made, else what `make` returns. That is kept, unless another publication was put into
  // service while it was made. While one thread makes an archive,
  // others that request the same one wait for it. If `make` throws, the next of them makes it.
  [[nodiscard]] http_file get(const std::string &key, const maker &make);
  // Gives up the kept archive `kept_for` after its last request, or when another publication was
  // put into service. A client to which it is being sent still receives all of it.
  void expire(clock::time_point now);

 private:
  struct archive_id {
    std::string state;  // of the files
    std::string key;
    auto operator<=>(const archive_id &) const = default;
  };
  struct kept_archive {
    archive_id id;
    http_file archive;
    clock::time_point last_request;
  };
  class turn;

  [[nodiscard]] http_file shared() const;

  const served_files &files_;
  const int compression_;
  std::mutex mutex_;
  std::condition_variable finished_;
  std::set<archive_id> being_made_;
  std::optional<kept_archive> kept_;
};

}  // namespace zotconf
