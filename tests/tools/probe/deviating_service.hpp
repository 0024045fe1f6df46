// SPDX-License-Identifier: Apache-2.0
// A service that does what docs/formats.md asks for, except where a test deviates.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <sstream>
#include <thread>

#include "tests/support/archive.hpp"
#include "tests/support/publication.hpp"
#include "tests/tools/support/process.hpp"

namespace zot::test {

inline bool has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

struct probe_call {
  std::string path;
  std::string body;  // of a POST
  std::vector<std::string> names;
};

class DeviatingService : public testing::Test {
 protected:
  // Returns true when it has answered.
  using deviation = std::function<bool(const probe_call &, httplib::Response &)>;

  DeviatingService() {
    published_.put("Wlan", "guest", 1, "ssid=guest");
    published_.put("Wlan", "office", 2, "ssid=office");
    published_.put("Zone", "z", 7, "country=DE");
    std::filesystem::create_directory(temporary_);
  }
  ~DeviatingService() override {
    is_over_ = true;
    server_.stop();
    if (thread_.joinable()) {
      thread_.join();
    }
  }

  void serve() {
    server_.set_keep_alive_timeout(60);
    server_.set_read_timeout(60);
    server_.Get(".*", [this](const httplib::Request &asked, httplib::Response &answer) {
      respond({.path = asked.path, .body = "", .names = {}}, answer);
    });
    // A form is limited to 8 KiB unless its body is read here.
    server_.Post(".*", [this](const httplib::Request &asked, httplib::Response &answer,
                              const httplib::ContentReader &read) {
      std::string body;
      read([&](const char *data, size_t size) {
        body.append(data, size);
        return true;
      });
      respond({.path = asked.path, .body = body, .names = requested_names(body)}, answer);
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    wait_until([this] { return server_.is_running(); }, "the service");
  }

  [[nodiscard]] std::vector<std::string> args() const {
    return {"probe",     "http://127.0.0.1:" + std::to_string(port_),
            "--index",   "00:11:22:aa:bb:cc",
            "--polls",   polls_,
            "--timeout", timeout_};
  }
  [[nodiscard]] environment variables() const { return {{"TMPDIR", temporary_}}; }
  [[nodiscard]] finished probe(const std::vector<std::string> &more = {}) {
    if (port_ == 0) {
      serve();
    }
    std::vector<std::string> words = args();
    words.insert(words.end(), more.begin(), more.end());
    return run_zotconf(words, variables());
  }

  // Probes, and expects that these checks fail and no others. Returns the report.
  std::string expect_failures(const std::vector<std::string> &expected) {
    const finished done = probe();
    std::vector<std::string> failed;
    std::istringstream lines(done.out);
    for (std::string line; std::getline(lines, line);) {
      if (const size_t at = line.find(": FAILED: expected "); at != std::string::npos) {
        failed.push_back(line.substr(0, at));
      }
    }
    EXPECT_EQ(failed, expected) << done.out;
    EXPECT_EQ(done.status, 1) << done.out;
    EXPECT_TRUE(has(done.err, "the first is " + expected.front() + "\n")) << done.err;
    EXPECT_TRUE(std::filesystem::is_empty(temporary_));
    return done.out;
  }
  void expect_failure(const std::vector<std::string> &expected, const std::string &found) {
    const std::string report = expect_failures(expected);
    EXPECT_TRUE(has(report, "; found " + found)) << report;
  }

  // Waits until the test ends.
  void never_answer() const {
    while (!is_over_) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

  static bool answer_with(httplib::Response &answer, int status, const std::string &body) {
    answer.status = status;
    answer.set_content(body, "application/octet-stream");
    return true;
  }

  const std::string k_path_ = "/file/knowledge/AP/00:11:22:AA:BB:CC/latest/00:11:22:AA:BB:CC.k";
  const std::string checksum_path_ =
      "/file/knowledge/AP/00:11:22:AA:BB:CC/latest/00:11:22:AA:BB:CC.checksum";
  publication published_;
  deviation deviate_;
  temp_dir dir_;
  std::string temporary_ = dir_ / "temporary";
  httplib::Server server_;
  int port_ = 0;
  std::string polls_ = "3";
  std::string timeout_ = "60";  // a loaded machine may be slow

 private:
  void respond(const probe_call &asked, httplib::Response &answer) const {
    if (deviate_ && deviate_(asked, answer)) {
      return;
    }
    if (asked.path == k_path_) {
      answer_with(answer, 200, published_.k_text());
    } else if (asked.path == checksum_path_) {
      answer_with(answer, 200, published_.checksum_text());
    } else if (asked.path == "/tgz" && has_all(asked.names)) {
      answer_with(answer, 200, archive_of(published_, asked.names));
    } else {
      answer_with(answer, 404, "");
    }
  }
  [[nodiscard]] bool has_all(const std::vector<std::string> &names) const {
    const auto files = published_.files();
    return std::ranges::all_of(names, [&](const std::string &name) {
      return name.starts_with("/config/") &&
             files.contains(std::filesystem::path(name.substr(7)).lexically_normal().string());
    });
  }

  std::atomic<bool> is_over_ = false;
  std::thread thread_;
};

}  // namespace zot::test
