// SPDX-License-Identifier: Apache-2.0
// Sends the reports of a relay in a thread of its own, so that a receiver that refuses, stalls or
// is not there delays nothing else. It keeps the newest report only.
#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "tools/relay/report_document.hpp"
#include "tools/relay/report_schedule.hpp"
#include "tools/relay/report_upload.hpp"

namespace zotconf {

class report_sender {
 public:
  // Called at each change of the status, in any thread. It must not call the sender.
  using listener = std::function<void(const report_status &)>;

  // Throws std::runtime_error if the URL cannot be used.
  report_sender(const std::string &url, connection_options options, const report_times &times,
                listener told);
  report_sender(const report_sender &) = delete;
  report_sender &operator=(const report_sender &) = delete;
  // Ends a transfer at once.
  ~report_sender();

  // Sends the facts if they say something new, otherwise once a day.
  void offer(report_facts facts);

  // Waits until the pending report was sent or an attempt has failed, `stopped` returns true or the
  // time is over. Returns why the report was not sent; empty: it was, or there is none.
  [[nodiscard]] std::string wait(std::chrono::milliseconds limit,
                                 const std::function<bool()> &stopped);

 private:
  using clock = report_schedule::clock;

  void run();
  // Returns when there is something to send (true) or the thread has to end (false).
  [[nodiscard]] bool wait_for_work(std::unique_lock<std::mutex> &lock);
  void send(std::unique_lock<std::mutex> &lock);
  [[nodiscard]] upload_end upload(const report_facts &facts);
  void tell();

  listener told_;
  report_upload upload_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool is_stopped_ = false;
  report_schedule schedule_;
  report_status status_;
  report_facts facts_;
  std::string offered_;  // the text of the facts without a time
  std::thread thread_;
};

}  // namespace zotconf
