// SPDX-License-Identifier: Apache-2.0
// What the service was asked: a line for each request, and the latest ones for the status page.
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

// One request and what became of it.
struct request_record {
  std::string time;    // when it was answered, UTC; the log sets it
  std::string client;  // address
  std::string method;
  std::string path;
  int status = 0;
  uint64_t bytes = 0;        // of the answer's body
  uint64_t duration_us = 0;  // from its header to the last byte of the answer
  std::string result;
};

void describe(json_node into, const request_record &request);

// May be used by several threads at once.
class request_log {
 public:
  static constexpr size_t kept = 50;

  request_log(std::ostream &out, bool json) : out_(out), json_(json) {}

  // A request is answered. Makes its texts fit for a log, writes its line and keeps it.
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
