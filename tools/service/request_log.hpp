// SPDX-License-Identifier: Apache-2.0
// Log of the requests: one line for each request, and the latest ones for the status page.
#pragma once

#include <cstdint>
#include <deque>
#include <iosfwd>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {

// One request and its outcome.
struct request_record {
  std::string time;    // time of the response, UTC; set by the log
  std::string client;  // address
  std::string method;
  std::string path;
  int status = 0;
  uint64_t bytes = 0;        // of the response body
  uint64_t duration_us = 0;  // from its header to the last byte of the response
  std::string result;
};

void describe(json_node into, const request_record &request);

// Safe to use from several threads.
class request_log {
 public:
  static constexpr size_t kept = 50;

  request_log(std::ostream &out, bool json) : out_(out), json_(json) {}

  // Adds a completed request: makes its texts safe for a log, writes its line and keeps it.
  void add(request_record record);

  struct view {
    uint64_t total = 0;                  // since the start
    std::vector<request_record> latest;  // newest first
  };
  [[nodiscard]] view latest() const;

 private:
  void write(const request_record &request);

  mutable std::mutex mutex_;
  std::ostream &out_;
  bool json_;
  uint64_t total_ = 0;
  std::deque<request_record> latest_;
};

}  // namespace zotconf
