// SPDX-License-Identifier: Apache-2.0
#include "tools/service/request_log.hpp"

#include <ctime>
#include <ostream>
#include <utility>

#include "tools/output/figures.hpp"

namespace zotconf {
namespace {

constexpr size_t longest_shown_path = 300;

// Limits the size of the status page.
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

void request_log::add(request_record record) {
  record.time = iso_time(std::time(nullptr));
  record.method = one_word(record.method);
  record.path = one_word(record.path);
  record.result = valid_utf8(std::move(record.result));
  const std::scoped_lock guard(mutex_);
  write(record);
  ++total_;
  record.method = shortened(std::move(record.method));
  record.path = shortened(std::move(record.path));
  latest_.push_front(std::move(record));
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
