// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/report_sender.hpp"

#include <algorithm>
#include <exception>
#include <random>
#include <utility>

#include "tools/output/figures.hpp"

namespace zotconf {

report_sender::report_sender(const std::string &url, connection_options options,
                             const report_times &times, listener told)
    : told_(std::move(told)),
      upload_(url, std::move(options), times.whole_timeout),
      schedule_(times, std::random_device()()) {
  status_.url = without_credentials(url);
  tell();
  thread_ = std::thread([this] { run(); });
}

report_sender::~report_sender() {
  {
    const std::scoped_lock guard(mutex_);
    is_stopped_ = true;
  }
  upload_.stop();
  changed_.notify_all();
  thread_.join();
}

void report_sender::offer(report_facts facts) {
  const std::scoped_lock guard(mutex_);
  std::string text = report_text(facts, "");
  if (text == offered_) {
    return;
  }
  offered_ = std::move(text);
  facts_ = std::move(facts);
  schedule_.change();
  status_.is_pending = true;
  tell();
  changed_.notify_all();
}

std::string report_sender::wait(std::chrono::milliseconds limit,
                                const std::function<bool()> &stopped) {
  const clock::time_point end = clock::now() + limit;
  std::unique_lock lock(mutex_);
  while (status_.is_pending && status_.problem.empty() && clock::now() < end && !stopped()) {
    constexpr std::chrono::milliseconds step(100);
    changed_.wait_for(lock, step);
  }
  if (!status_.is_pending) {
    return "";
  }
  return status_.problem.empty() ? "no answer from the receiver yet" : status_.problem;
}

void report_sender::tell() {
  told_(status_);
}

void report_sender::run() {
  std::unique_lock lock(mutex_);
  while (wait_for_work(lock)) {
    send(lock);
  }
}

bool report_sender::wait_for_work(std::unique_lock<std::mutex> &lock) {
  while (!is_stopped_ && clock::now() < schedule_.due()) {
    constexpr std::chrono::hours longest(1);
    changed_.wait_until(lock, std::min(schedule_.due(), clock::now() + longest));
  }
  return !is_stopped_;
}

upload_end report_sender::upload(const report_facts &facts) {
  try {
    return upload_.put(report_path(facts.relay.who),
                       report_text(facts, iso_time(std::time(nullptr))));
  } catch (const std::exception &error) {
    return {.wrong = error.what()};
  }
}

void report_sender::send(std::unique_lock<std::mutex> &lock) {
  const report_facts facts = facts_;
  schedule_.begin();
  lock.unlock();
  const upload_end end = upload(facts);
  lock.lock();
  if (is_stopped_) {
    return;
  }
  status_.problem = end.wrong;
  if (end.wrong.empty()) {
    schedule_.succeed(clock::now());
    status_.last_sent = std::time(nullptr);
  } else {
    schedule_.fail(clock::now(), end.retry_after);
  }
  status_.is_pending = schedule_.is_pending();
  tell();
  changed_.notify_all();
}

}  // namespace zotconf
