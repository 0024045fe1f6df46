// SPDX-License-Identifier: Apache-2.0
#include "tools/service/request_log.hpp"

#include <httplib.h>

#include <charconv>
#include <chrono>
#include <ctime>
#include <optional>
#include <ostream>
#include <utility>

#include "tools/output/figures.hpp"

namespace zotconf {
namespace {

using clock = std::chrono::steady_clock;

constexpr size_t longest_shown_path = 300;

// What is known of a request before it is answered. It belongs to the thread that answers it.
struct open_request {
  std::optional<clock::time_point> begin;
  std::string result;
};

thread_local open_request at_hand;

uint64_t microseconds_since(const std::optional<clock::time_point> &begin) {
  const auto span = begin ? clock::now() - *begin : clock::duration::zero();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(span).count());
}

uint64_t length_of(const httplib::Response &response) {
  const std::string text = response.get_header_value("Content-Length");
  uint64_t length = 0;
  std::from_chars(text.data(), text.data() + text.size(), length);
  return length;
}

std::string result_of(std::string noted, const httplib::Response &response) {
  if (response.content_provider_ && !response.content_provider_success_) {
    return "broken off by the client";
  }
  if (noted.empty()) {
    noted = response.status < 400 ? "answered" : "refused";
  }
  return valid_utf8(std::move(noted));
}

// Long paths must not make the status page heavy.
std::string shortened(std::string path) {
  if (path.size() > longest_shown_path) {
    path.resize(longest_shown_path);
    path = valid_utf8(std::move(path)) + "…";
  }
  return path;
}

}  // namespace

void describe(json_node into, const request_record &request) {
  into.set("time", request.time)
      .set("client", request.client)
      .set("method", request.method)
      .set("path", request.path)
      .set("status", request.status)
      .set("bytes", request.bytes)
      .set("duration_us", request.duration_us)
      .set("result", request.result);
}

void request_log::begin() {
  at_hand = {.begin = clock::now(), .result = ""};
}

void request_log::note(std::string result) {
  at_hand.result = std::move(result);
}

void request_log::finish(const httplib::Request &request, const httplib::Response &response) {
  open_request done = std::exchange(at_hand, {});
  const request_record record{.time = iso_time(std::time(nullptr)),
                              .client = request.remote_addr,
                              .method = one_word(request.method),
                              .path = one_word(request.path),
                              .status = response.status,
                              .bytes = length_of(response),
                              .duration_us = microseconds_since(done.begin),
                              .result = result_of(std::move(done.result), response)};
  const std::scoped_lock guard(mutex_);
  write(record);
  ++total_;
  latest_.push_front(record);
  latest_.front().method = shortened(record.method);
  latest_.front().path = shortened(record.path);
  if (latest_.size() > kept) {
    latest_.pop_back();
  }
}

void request_log::write(const request_record &request) {
  if (json_) {
    json_document line;
    describe(line.root(), request);
    out_ << line.line() << std::flush;
    return;
  }
  out_ << request.time << ' ' << request.method << ' ' << request.path << ' ' << request.status
       << ' ' << request.bytes << std::endl;
}

request_log::view request_log::latest() const {
  const std::scoped_lock guard(mutex_);
  return {.total = total_, .latest = {latest_.begin(), latest_.end()}};
}

}  // namespace zotconf
