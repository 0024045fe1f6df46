// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/file_fetch.hpp"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "tools/output/plain_text.hpp"
#include "tools/relay/partial_file.hpp"
#include "tools/relay/transfer_problem.hpp"

namespace zotconf {
namespace {

constexpr unsigned most_continuations = 3;
// With fewer bytes than these, a continued transfer has made no progress.
constexpr uint64_t least_progress = 1024;

void check_total(uint64_t total, uint64_t size) {
  if (total != size) {
    throw std::runtime_error("has " + std::to_string(total) + " bytes instead of " +
                             std::to_string(size));
  }
}

}  // namespace

class file_job : public response_sink {
 public:
  file_job(const wanted_file &file, size_t index)
      : file_(file), index_(index), part_(file.to, file.size) {
    const uint64_t present = part_.size_on_disk();
    from_ = present < file.size ? present : 0;
    most_ = from_;
  }

  bool begin(const response_head &head, int64_t length) override;
  void take(std::string_view bytes) override { part_.append(bytes); }

  [[nodiscard]] const wanted_file &file() const { return file_; }
  [[nodiscard]] size_t index() const { return index_; }
  [[nodiscard]] transfer_request next_request() {
    is_taken_ = false;
    is_range_refused_ = false;
    return {.path = file_.path, .from = from_, .bypasses_caches = file_.bypasses_caches};
  }
  // Whether the file has its bytes, even if the connection broke right after the last one.
  [[nodiscard]] bool is_whole(const transfer_end &how) const {
    return is_taken_ && part_.end() == file_.size && (how.wrong.empty() || how.is_broken);
  }
  void close() { part_.close(); }

  // Prepares another request, if there should be one.
  [[nodiscard]] bool may_continue(const transfer_end &how);
  [[nodiscard]] std::string problem(const transfer_end &how) const;

 private:
  bool take_range(const response_head &head);
  [[nodiscard]] bool may_begin_anew();

  const wanted_file &file_;
  size_t index_;
  partial_file part_;
  uint64_t from_ = 0;
  uint64_t most_ = 0;  // bytes that the file has had
  unsigned continuations_ = 0;
  bool is_taken_ = false;
  bool is_range_refused_ = false;
  bool has_begun_anew_ = false;
};

bool file_job::begin(const response_head &head, int64_t length) {
  if (head.status == status_ok) {
    if (length >= 0) {
      check_total(static_cast<uint64_t>(length), file_.size);
    }
    part_.open(0);
    is_taken_ = true;
    return true;
  }
  is_range_refused_ = from_ > 0 && head.status == status_range_not_satisfiable;
  return from_ > 0 && head.status == status_partial_content && take_range(head);
}

bool file_job::take_range(const response_head &head) {
  if (!head.range || head.range->first != from_) {
    is_range_refused_ = true;
    return false;
  }
  check_total(head.range->total.value_or(file_.size), file_.size);
  part_.open(from_);
  is_taken_ = true;
  return true;
}

bool file_job::may_begin_anew() {
  from_ = 0;
  return !std::exchange(has_begun_anew_, true);
}

bool file_job::may_continue(const transfer_end &how) {
  if (is_range_refused_) {
    return may_begin_anew();
  }
  const bool is_short = how.wrong.empty() && is_taken_;
  if (!how.is_broken && !is_short) {
    return false;
  }
  if (is_taken_) {
    from_ = part_.end();
    part_.close();
  }
  if (from_ >= most_ + least_progress) {
    continuations_ = 0;
  }
  most_ = std::max(most_, from_);
  return ++continuations_ <= most_continuations;
}

std::string file_job::problem(const transfer_end &how) const {
  if (is_taken_ && (how.wrong.empty() || how.is_broken)) {
    return early_end(file_.size);
  }
  return how.wrong.empty() ? how.head.status_text() : how.wrong;
}

file_fetch::file_fetch(http_engine &engine, const std::vector<wanted_file> &files,
                       const std::function<void(size_t)> &arrived,
                       const std::function<bool()> &stopped)
    : engine_(engine), files_(files), arrived_(arrived), stopped_(stopped) {}

file_fetch::~file_fetch() {
  engine_.cancel();
}

fetch_end file_fetch::run() {
  while (start_more()) {
    for (const http_engine::ended &one : engine_.wait()) {
      settle(one);
    }
  }
  return end_;
}

// Returns whether something is on its way, or still to be started.
bool file_fetch::start_more() {
  while (!has_failed()) {
    if (stopped_()) {
      end_.wrong = "stopped";
      return false;
    }
    if (next_ == files_.size() || !engine_.has_room()) {
      return next_ < files_.size() || !jobs_.empty();
    }
    start_next();
  }
  return false;
}

void file_fetch::start_next() {
  const size_t index = next_++;
  const wanted_file &file = files_[index];
  // An empty file that is missing has the right size too, but is to be created.
  if (is_there(file.to) && partial_file(file.to, file.size).size_on_disk() == file.size) {
    arrived_(index);
    return;
  }
  jobs_.push_back(std::make_unique<file_job>(file, index));
  engine_.start(jobs_.back()->next_request(), *jobs_.back());
}

void file_fetch::settle(const http_engine::ended &one) {
  const auto found = std::ranges::find(jobs_, one.sink, &std::unique_ptr<file_job>::get);
  file_job &job = **found;
  if (job.is_whole(one.how)) {
    finish(job);
  } else if (!has_failed() && job.may_continue(one.how)) {
    engine_.start(job.next_request(), job);
    return;
  } else {
    fail(job.file(), job.problem(one.how), one.how.head);
  }
  jobs_.erase(found);
}

void file_fetch::finish(file_job &job) {
  try {
    job.close();
  } catch (const std::exception &error) {
    fail(job.file(), error.what(), {});
    return;
  }
  arrived_(job.index());
}

void file_fetch::fail(const wanted_file &file, const std::string &reason,
                      const response_head &head) {
  if (has_failed()) {
    return;
  }
  end_ = {.wrong = printable(file.path) + ": " + reason,
          .status = head.is_complete ? head.status : 0,
          .retry_after = head.retry_after};
}

}  // namespace zotconf
