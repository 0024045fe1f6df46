// SPDX-License-Identifier: Apache-2.0
// Fetches several files at a time and continues those that break.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/relay/http_engine.hpp"
#include "tools/relay/upstream.hpp"

namespace zotconf {

// One file on its way.
class file_job;

class file_fetch {
 public:
  // The objects outlive this one.
  file_fetch(http_engine &engine, const std::vector<wanted_file> &files,
             const std::function<void(size_t)> &arrived, const std::function<bool()> &stopped);
  file_fetch(const file_fetch &) = delete;
  file_fetch &operator=(const file_fetch &) = delete;
  // Ends what is still running.
  ~file_fetch();

  [[nodiscard]] fetch_end run();

 private:
  [[nodiscard]] bool has_failed() const { return !end_.wrong.empty(); }
  [[nodiscard]] bool start_more();
  void start_next();
  void settle(const http_engine::ended &one);
  void finish(file_job &job);
  void fail(const wanted_file &file, const std::string &reason, const response_head &head);

  http_engine &engine_;
  const std::vector<wanted_file> &files_;
  const std::function<void(size_t)> &arrived_;
  const std::function<bool()> &stopped_;
  size_t next_ = 0;
  std::vector<std::unique_ptr<file_job>> jobs_;
  fetch_end end_;
};

}  // namespace zotconf
