// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_status.hpp"

#include <thread>

#include "tests/tools/relay/served_relay.hpp"
#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/publishing.hpp"

namespace zot::test {
namespace {

constexpr int failed = 1;
constexpr int wrong_usage = 2;
constexpr int relay_problem = 11;

class RelayStatus : public ServedRelay {
 protected:
  [[nodiscard]] finished ask(const std::vector<std::string> &more = {}) const {
    return ask_at(url(), more);
  }
  [[nodiscard]] static finished ask_at(const std::string &address,
                                       const std::vector<std::string> &more = {}) {
    std::vector<std::string> args = {"status", "--relay", address};
    args.insert(args.end(), more.begin(), more.end());
    return run_zotconf(args);
  }
};

// A server that gives one answer to every request.
class one_answer {
 public:
  one_answer(int status, const std::string &body) {
    server_.Get(".*", [status, body](const httplib::Request &, httplib::Response &answer) {
      answer.status = status;
      answer.set_content(body, "application/json");
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    wait_until([this] { return server_.is_running(); }, "the server");
  }
  one_answer(const one_answer &) = delete;
  one_answer &operator=(const one_answer &) = delete;
  ~one_answer() {
    server_.stop();
    thread_.join();
  }
  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

// Expects that the answer is not accepted as the state of a relay.
void expect_error(int status, const std::string &body, const std::string &reason) {
  const one_answer server(status, body);
  const finished done = run_zotconf({"status", "--relay", server.url(), "--json"});
  EXPECT_EQ(done.status, failed);
  EXPECT_EQ(done.out, "");
  EXPECT_EQ(done.err, "zotconf: " + server.url() + "/status.json: " + reason + "\n");
}

TEST_F(RelayStatus, PrintsTheReportsIfTheyAreSent) {
  EXPECT_FALSE(has(ask().out, "reports:"));
  change([](relay_state &state) { state.report = {.url = "https://reports.example.net"}; });
  EXPECT_TRUE(
      has(ask().out, "reports:      to https://reports.example.net, none sent since the start\n"));
  change([](relay_state &state) {
    state.report->last_sent = relay_start;
    state.report->problem = "status 403";
  });
  const finished done = ask();
  EXPECT_TRUE(has(done.out,
                  "reports:      to https://reports.example.net, last sent 2023-11-14T22:13:20Z, "
                  "failing: status 403\n"))
      << done.out;
  EXPECT_EQ(done.status, 0);
}

TEST_F(RelayStatus, PrintsAGoodRelayAndExitsWith0) {
  const finished done = ask();
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_EQ(done.err, "");
  for (const std::string line :
       {"state:        good\n", "element:      AP 001122334455\n",
        "upstream:     https://config.example.net/site\n", "publication:  3 files, 2.0 KiB, in ",
        "config ID:    3f2504e0-4f89-41d3-9a0c-0305e82c3301\n", "signed by:    CN=publisher, 20",
        "last contact: 20"}) {
    EXPECT_TRUE(has(done.out, line)) << line << "in\n" << done.out;
  }
  EXPECT_FALSE(has(done.out, "problem:")) << done.out;
}

TEST_F(RelayStatus, AcceptsAUrlThatEndsInASlash) {
  EXPECT_EQ(ask_at(url() + "/").status, 0);
}

TEST_F(RelayStatus, PrintsTheDocumentOfTheRelayAsItIs) {
  change([](relay_state &state) { state.bytes_received = 18446744073709551615U; });
  const finished done = ask({"--json"});
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_EQ(json_value(done.out)["upstream"].text(), "https://config.example.net/site");
  EXPECT_TRUE(has(done.out, "18446744073709551615")) << done.out;
}

TEST_F(RelayStatus, PrintsAProblemWithItsAdviceAndExitsWith11) {
  change([](relay_state &state) {
    state.problem = "Couldn't connect to server";
    state.problem_since = relay_start;
  });
  const finished done = ask();
  EXPECT_EQ(done.status, relay_problem);
  EXPECT_TRUE(has(done.out, "state:        problem\n")) << done.out;
  EXPECT_TRUE(has(done.out,
                  "\nproblem: Couldn't connect to server, since 2023-11-14T22:13:20Z\n"
                  "  Check the network of this element"))
      << done.out;
  EXPECT_EQ(ask({"--json"}).status, relay_problem);
}

TEST_F(RelayStatus, ExitsWith11WithoutRecentContact) {
  change([this](relay_state &state) { state.last_contact = now_ - 7200; });
  const finished done = ask();
  EXPECT_EQ(done.status, relay_problem);
  EXPECT_TRUE(has(done.out, "problem: no contact with the server for 2h")) << done.out;
}

TEST_F(RelayStatus, ExitsWith11WithoutAPublication) {
  change([this](relay_state &state) { state = new_relay(now_); });
  const finished done = ask();
  EXPECT_EQ(done.status, relay_problem);
  EXPECT_TRUE(has(done.out, "publication:  none in service\n")) << done.out;
  EXPECT_TRUE(has(done.out, "last contact: none since the start\n")) << done.out;
}

TEST_F(RelayStatus, PrintsNoControlCharacterOfTheRelay) {
  change([](relay_state &state) {
    state.problem =
        "\x1b[31m\xc2\x9b"
        "1m";
  });
  const finished text = ask();
  EXPECT_FALSE(has(text.out, "\x1b"));
  EXPECT_FALSE(has(text.out, "\xc2\x9b"));
}

TEST_F(RelayStatus, ExitsWith1WithoutARelay) {
  const finished done = ask_at("http://127.0.0.1:1");
  EXPECT_EQ(done.status, failed);
  EXPECT_EQ(done.out, "");
  EXPECT_EQ(done.err,
            "zotconf: http://127.0.0.1:1/status.json: no complete answer: Couldn't connect to "
            "server\n");
}

TEST_F(RelayStatus, AcceptsNoOtherAnswer) {
  expect_error(404, "{}", "status 404");
  expect_error(200, "<html>", "the answer is not a JSON object");
  expect_error(200, "[]", "the answer is not a JSON object");
  expect_error(200, "", "the answer is not a JSON object");
  expect_error(200, R"({"state": "good"} more)", "the answer is not a JSON object");
  expect_error(200, "{\"state\": \"\x1b[31m\"}", "the answer is not a JSON object");
  expect_error(200, "{\"state\": \"\xff\"}", "the answer is not a JSON object");
  expect_error(200, "{}", "the answer is not the state of a relay");
  expect_error(200, R"({"state": "good", "upstream": "x"})",
               "the answer is not the state of a relay");
  expect_error(200, R"({"state": "good", "upstream": 1, "element": {}, "contact": {}})",
               "the answer is not the state of a relay");
  expect_error(200, "{\"a\": \"" + std::string(2 << 20, 'a') + "\"}",
               "a body of more than 1.0 MiB");
}

// What a later version may leave out or add.
TEST_F(RelayStatus, NeedsOnlyAFewMembers) {
  const one_answer server(
      200,
      R"({"state": "good", "upstream": "x", "element": {}, "contact": {}, "notes": 1, "a": 1})");
  const finished done = ask_at(server.url());
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_TRUE(has(done.out, "upstream:     x\n")) << done.out;
}

TEST_F(RelayStatus, TakesAStateThatItDoesNotKnowForAProblem) {
  const one_answer server(200,
                          R"({"state": "other", "upstream": "x", "element": {}, "contact": {}})");
  EXPECT_EQ(ask_at(server.url()).status, relay_problem);
}

TEST_F(RelayStatus, TakesNoUrlButThatOfAService) {
  for (const std::string address : {"127.0.0.1:8087", "https://x", "http://x/path", "ftp://x"}) {
    EXPECT_EQ(ask_at(address).status, wrong_usage) << address;
  }
}

using RelayStatusOfServe = Publishing;

TEST_F(RelayStatusOfServe, IsAnError) {
  put("Wlan/a", "ssid=a");
  ASSERT_EQ(run().status, 0);
  const serving service(publication_);
  const std::string url = "http://127.0.0.1:" + std::to_string(service.port());
  const finished done = run_zotconf({"status", "--relay", url});
  EXPECT_EQ(done.status, failed);
  EXPECT_EQ(done.err,
            "zotconf: " + url +
                "/status.json: the answer is from zotconf serve, not from zotconf relay\n");
}

}  // namespace
}  // namespace zot::test
