// SPDX-License-Identifier: Apache-2.0
// A web server on the loopback host that serves the files of a folder, with entity tags and
// ranges, and notes what it was asked. It can deviate from that.
#pragma once

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/tools/support/process.hpp"

namespace zot::test {

class static_site {
 public:
  // Returns true when it has answered.
  using deviation = std::function<bool(const std::string &path, httplib::Response &)>;

  explicit static_site(std::string folder) : folder_(std::move(folder)) {
    server_.new_task_queue = [] { return new httplib::ThreadPool(16); };
    server_.set_keep_alive_timeout(1);
    server_.Get(".*", [this](const httplib::Request &asked, httplib::Response &answer) {
      respond(asked, answer);
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    wait_until([this] { return server_.is_running(); }, "the site");
  }
  static_site(const static_site &) = delete;
  static_site &operator=(const static_site &) = delete;
  ~static_site() { stop(); }

  // Further requests are refused.
  void stop() {
    is_over_ = true;
    server_.stop();
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

  // "PATH STATUS" of each request so far, in order.
  [[nodiscard]] std::vector<std::string> requests() const {
    const std::scoped_lock guard(mutex_);
    return requests_;
  }
  // Of those whose path contains a text.
  [[nodiscard]] size_t count(const std::string &part) const {
    const auto all = requests();
    return static_cast<size_t>(std::ranges::count_if(
        all, [&](const std::string &one) { return one.find(part) != std::string::npos; }));
  }
  // How many requests asked caches to be bypassed.
  [[nodiscard]] size_t count_past_caches() const { return past_caches_; }
  void forget_requests() {
    const std::scoped_lock guard(mutex_);
    requests_.clear();
  }

  void deviate(deviation how) {
    const std::scoped_lock guard(mutex_);
    deviation_ = std::move(how);
  }
  void answer(const std::string &suffix, int status, const std::string &body = "",
              const std::string &retry_after = "") {
    deviate([=](const std::string &path, httplib::Response &reply) {
      if (!path.ends_with(suffix)) {
        return false;
      }
      reply.status = status;
      reply.set_content(body, "application/octet-stream");
      if (!retry_after.empty()) {
        reply.set_header("Retry-After", retry_after);
      }
      return true;
    });
  }
  // Requests for such a path are not answered before the end of the site.
  void hang(const std::string &part) {
    deviate([this, part](const std::string &path, httplib::Response &) {
      if (path.find(part) == std::string::npos) {
        return false;
      }
      is_hanging_ = true;
      while (!is_over_) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      return true;
    });
  }
  [[nodiscard]] bool is_hanging() const { return is_hanging_; }
  void send_no_tags() { has_tags_ = false; }
  // The same tag for all files, whatever they contain.
  void send_tag(const std::string &tag) {
    const std::scoped_lock guard(mutex_);
    fixed_tag_ = tag;
  }

 private:
  void respond(const httplib::Request &asked, httplib::Response &answer) {
    deviation how;
    {
      const std::scoped_lock guard(mutex_);
      how = deviation_;
    }
    if (!how || !how(asked.path, answer)) {
      serve(asked, answer);
    }
    past_caches_ += asked.get_header_value("Cache-Control") == "no-cache" ? 1 : 0;
    const std::scoped_lock guard(mutex_);
    requests_.push_back(asked.path + " " + std::to_string(answer.status));
  }
  [[nodiscard]] std::string tag_of(const std::string &bytes) const {
    const std::scoped_lock guard(mutex_);
    return fixed_tag_.empty() ? '"' + sha256_hex(bytes).substr(0, 16) + '"' : fixed_tag_;
  }
  void serve(const httplib::Request &asked, httplib::Response &answer) const {
    answer.status = 404;
    if (!exists(folder_ + asked.path)) {
      return;
    }
    const std::string bytes = read_bytes(folder_ + asked.path);
    const std::string tag = tag_of(bytes);
    if (has_tags_) {
      answer.set_header("ETag", tag);
    }
    if (has_tags_ && asked.get_header_value("If-None-Match") == tag) {
      answer.status = 304;
      return;
    }
    // The server makes it 206 if a range is asked for.
    answer.status = asked.ranges.empty() ? 200 : 206;
    answer.set_content(bytes, "application/octet-stream");
  }

  std::string folder_;
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  std::atomic<bool> is_over_ = false;
  std::atomic<bool> is_hanging_ = false;
  std::atomic<bool> has_tags_ = true;
  std::string fixed_tag_;
  mutable std::mutex mutex_;
  deviation deviation_;
  std::vector<std::string> requests_;
  std::atomic<size_t> past_caches_ = 0;
};

}  // namespace zot::test
