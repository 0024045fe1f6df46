// SPDX-License-Identifier: Apache-2.0
// The status page of a relay, served by a real server on a free port of 127.0.0.1.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <string>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"
#include "tools/relay/relay_page.hpp"
#include "tools/service/http_server.hpp"
#include "tools/service/listener.hpp"

namespace zot::test {

inline constexpr std::time_t relay_start = 1700000000;  // 2023-11-14T22:13:20Z

// A relay that has received a publication a moment ago.
inline zotconf::relay_state good_relay(std::time_t now) {
  zotconf::relay_state state;
  state.upstream = "https://config.example.net/site";
  state.who = {.subsys = "AP", .index = "001122334455"};
  state.must_be_signed = true;
  state.started = now - 3600;
  state.max_age = std::chrono::hours(1);
  state.has_publication = true;
  state.k_digest = std::string(64, 'a');
  state.sequence = 42;
  state.config_id = "3f2504e0-4f89-41d3-9a0c-0305e82c3301";
  state.signer = "CN=publisher";
  state.signed_at = now - 700;
  state.files = 3;
  state.bytes = 2048;
  state.last_news = now - 600;
  state.last_attempt = now - 10;
  state.last_contact = now - 10;
  state.next_attempt = now + 20;
  state.rounds = 120;
  state.failures = 2;
  state.updates = 1;
  state.bytes_received = 4096;
  state.bytes_saved = 1024;
  return state;
}

// The state of a relay that has never reached its server.
inline zotconf::relay_state new_relay(std::time_t now) {
  zotconf::relay_state state;
  state.upstream = "https://config.example.net/site";
  state.who = {.subsys = "AP", .index = "001122334455"};
  state.started = now - 5;
  state.max_age = std::chrono::hours(1);
  return state;
}

class page_service : public zotconf::http_service {
 public:
  explicit page_service(const zotconf::relay_page &page) : page_(page) {}

  [[nodiscard]] zotconf::http_work work_of(
      const zotconf::http_request & /*request*/) const override {
    return zotconf::http_work::quick;
  }
  [[nodiscard]] zotconf::http_answer answer(const zotconf::http_request &request,
                                            const std::stop_token & /*stop*/) override {
    auto answer = page_.answer(request);
    return answer ? std::move(*answer) : zotconf::refused(404, "not found");
  }
  void failed(const std::exception &error) override { ADD_FAILURE() << error.what(); }
  void finished(const zotconf::http_exchange & /*exchange*/) override {}

 private:
  const zotconf::relay_page &page_;
};

class ServedRelay : public testing::Test {
 protected:
  using relay_state = zotconf::relay_state;

  [[nodiscard]] httplib::Client client() const { return httplib::Client("127.0.0.1", port()); }
  [[nodiscard]] httplib::Result get(const std::string &path) const { return client().Get(path); }
  [[nodiscard]] std::string page() const { return get("/")->body; }
  [[nodiscard]] json_value status() const { return json_value(get("/status.json")->body); }
  [[nodiscard]] int port() const { return listening_.port; }
  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port()); }
  void change(const std::function<void(relay_state &)> &how) { board_.change(how); }

  std::time_t now_ = std::time(nullptr);
  zotconf::relay_board board_{good_relay(now_)};
  zotconf::element_log log_;
  zotconf::relay_page page_{board_, log_};
  page_service service_{page_};
  zotconf::listener listening_ = zotconf::listen_on("127.0.0.1", 0);
  zotconf::http_server server_{std::move(listening_.socket), service_};
};

}  // namespace zot::test
