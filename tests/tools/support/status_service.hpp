// SPDX-License-Identifier: Apache-2.0
// A service of one publication, asked as its status page asks it.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"

namespace zot::test {

using namespace std::chrono_literals;

inline const std::string k_path = "/file/knowledge/AP/001122334455/latest/001122334455.k";
inline const std::string checksum_path =
    "/file/knowledge/AP/001122334455/latest/001122334455.checksum";

class status_service : public testing::Test {
 protected:
  status_service() {
    write_bytes(dir_ / "source/Wlan/a", "ssid=a");
    write_bytes(dir_ / "source/Wlan/b", "ssid=bb");
    write_bytes(dir_ / "source/Zone/z", "country=DE");
    publish_source({"--config-id", "3f2504e0-4f89-41d3-9a0c-0305e82c3301", "--firmware", "7.1.0"});
    service_ = std::make_unique<serving>(publication_);
  }

  void publish_source(const std::vector<std::string> &more = {}) const {
    if (publish(dir_ / "source", publication_, more).status != 0) {
      throw std::runtime_error("publish failed");
    }
  }
  [[nodiscard]] httplib::Client client() const {
    httplib::Client caller("127.0.0.1", service_->port());
    caller.set_read_timeout(60s);
    return caller;
  }
  [[nodiscard]] httplib::Result get(const std::string &path) const { return client().Get(path); }
  [[nodiscard]] json_value asked(const std::string &path) const {
    const auto answer = get(path);
    return json_value(answer ? answer->body : "no answer");
  }
  [[nodiscard]] json_value status() const { return asked("/status.json"); }
  // The same, asked for with an earlier answer's tag.
  [[nodiscard]] httplib::Result get_since(const std::string &path, const std::string &tag) const {
    return client().Get(path, {{"If-None-Match", tag}});
  }
  // The status as soon as it holds what is awaited: a folder is looked at once a second, and a
  // request is told after its answer has left.
  template <class Condition>
  [[nodiscard]] json_value status_when(Condition holds) const {
    json_value seen = status();
    for (int tries = 0; tries < 1000 && !holds(seen); ++tries) {
      std::this_thread::sleep_for(10ms);
      seen = status();
    }
    return seen;
  }
  [[nodiscard]] json_value status_after_requests(int count) const {
    return status_when(
        [count](const json_value &seen) { return seen["requests_total"].number() >= count; });
  }
  // Asks, and waits until the request is told: the next one shall not overtake it.
  void ask(const std::string &path, const std::string &body = "") {
    const auto answer = body.empty() ? get(path) : client().Post(path, body, "application/json");
    if (!answer) {
      throw std::runtime_error("no answer to " + path);
    }
    ++asked_;
    (void)status_after_requests(asked_);
  }
  [[nodiscard]] json_value status_when_read() const {
    return status_when([](const json_value &seen) { return seen["look"]["complete"].flag(); });
  }
  // The first element, which has a problem.
  [[nodiscard]] json_value problem_element() const {
    return status_when([](const json_value &seen) {
      return seen["look"]["complete"].flag() && seen["look"]["problems"].number() == 1;
    })["elements"][0];
  }
  [[nodiscard]] std::string reason() const { return problem_element()["problem"]["reason"].text(); }
  // A K for an element beside the published one, with no file.
  void write_k(const std::string &index, const std::string &cluster) const {
    const std::string k = R"({"clusterId": ")" + cluster + R"(", "gpbs": []})";
    const std::string path = publication_ + "/file/knowledge/DP/" + index + "/latest/" + index;
    write_bytes(path + ".checksum", sha256_hex(k) + "\n");
    write_bytes(path + ".k", k);
  }
  [[nodiscard]] int matching(const std::string &query) const {
    return static_cast<int>(asked("/status.json?" + query)["page"]["elements"].number());
  }

  temp_dir dir_;
  std::string publication_ = dir_ / "pub";
  std::unique_ptr<serving> service_;
  int asked_ = 0;
};

}  // namespace zot::test
