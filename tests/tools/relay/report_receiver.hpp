// SPDX-License-Identifier: Apache-2.0
// A web server on the loopback host that takes documents by PUT, or answers as a test says.
#pragma once

#include <httplib.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/support/process.hpp"

namespace zot::test {

class report_receiver {
 public:
  struct received {
    std::string path;
    std::string body;
    std::string type;
    std::string authorization;
  };

  report_receiver() {
    server_.set_keep_alive_timeout(1);
    server_.Put(".*", [this](const httplib::Request &asked, httplib::Response &answer) {
      respond(asked, answer);
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    wait_until([this] { return server_.is_running(); }, "the receiver");
  }
  report_receiver(const report_receiver &) = delete;
  report_receiver &operator=(const report_receiver &) = delete;
  ~report_receiver() {
    server_.stop();
    thread_.join();
  }

  [[nodiscard]] std::string place() const { return "127.0.0.1:" + std::to_string(port_); }
  [[nodiscard]] std::string url() const { return "http://" + place() + "/reports"; }

  // From now on.
  void answer(int status, const std::string &retry_after = "", const std::string &location = "") {
    const std::scoped_lock guard(mutex_);
    status_ = status;
    retry_after_ = retry_after;
    location_ = location;
  }
  [[nodiscard]] std::vector<received> all() const {
    const std::scoped_lock guard(mutex_);
    return all_;
  }
  [[nodiscard]] size_t count() const { return all().size(); }
  void wait_for(size_t number) const {
    wait_until([&] { return count() >= number; }, std::to_string(number) + " reports");
  }

 private:
  void respond(const httplib::Request &asked, httplib::Response &answer) {
    const std::scoped_lock guard(mutex_);
    all_.push_back({.path = asked.path,
                    .body = asked.body,
                    .type = asked.get_header_value("Content-Type"),
                    .authorization = asked.get_header_value("Authorization")});
    answer.status = status_;
    if (!retry_after_.empty()) {
      answer.set_header("Retry-After", retry_after_);
    }
    if (!location_.empty()) {
      answer.set_header("Location", location_);
    }
  }

  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  mutable std::mutex mutex_;
  int status_ = 201;
  std::string retry_after_;
  std::string location_;
  std::vector<received> all_;
};

}  // namespace zot::test
