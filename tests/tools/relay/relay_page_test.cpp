// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_page.hpp"

#include "tests/tools/relay/served_relay.hpp"
#include "tests/tools/support/cached_element.hpp"

namespace zot::test {
namespace {

using RelayPage = ServedRelay;

TEST_F(RelayPage, IsHtmlThatIsNotStoredAndRunsNoScript) {
  const auto answer = get("/");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_EQ(answer->get_header_value("Content-Type"), "text/html; charset=utf-8");
  EXPECT_EQ(answer->get_header_value("Cache-Control"), "no-store");
  const std::string policy = answer->get_header_value("Content-Security-Policy");
  EXPECT_TRUE(policy.starts_with("default-src 'none';")) << policy;
  EXPECT_TRUE(has(policy, "style-src 'sha256-")) << policy;
  EXPECT_FALSE(has(policy, "unsafe")) << policy;
  EXPECT_FALSE(has(policy, "script-src")) << policy;
  EXPECT_FALSE(has(answer->body, "<script"));
  EXPECT_TRUE(answer->body.starts_with("<!doctype html>"));
  EXPECT_TRUE(answer->body.ends_with("</html>\n"));
}

TEST_F(RelayPage, LoadsItselfAgain) {
  EXPECT_TRUE(has(page(), "<meta http-equiv=\"refresh\" content=\"10\">"));
}

TEST_F(RelayPage, ShowsAGoodRelayWithoutANote) {
  const std::string text = page();
  EXPECT_TRUE(has(text, "<title>in service - zotconf relay</title>"));
  EXPECT_FALSE(has(text, "class=\"note\"")) << text;
  for (const std::string fact :
       {"AP 001122334455", "https://config.example.net/site", "3f2504e0", "CN=publisher",
        "3 files, 2.0 KiB", "<dd>42</dd>", "<dd>120</dd>", "4.0 KiB", "1.0 KiB"}) {
    EXPECT_TRUE(has(text, fact)) << fact;
  }
}

TEST_F(RelayPage, ShowsTheProblemBeforeTheFactsWithAdvice) {
  change([](relay_state &state) { state.problem = "cannot write k: No space left on device"; });
  const std::string text = page();
  EXPECT_TRUE(has(text, "<title>in service, with a problem - zotconf relay</title>"));
  const size_t problem = text.find("cannot write k: No space left on device");
  ASSERT_NE(problem, std::string::npos);
  EXPECT_LT(problem, text.find("Free space"));
  EXPECT_LT(text.find("Free space"), text.find("Config ID"));
  EXPECT_TRUE(has(text, "system of <code>--store</code>, and"));
}

TEST_F(RelayPage, ShowsTheReportsIfTheyAreSent) {
  EXPECT_FALSE(has(page(), "<h2>Reports</h2>"));
  change([](relay_state &state) {
    state.report = {.url = "https://reports.example.net", .last_sent = state.started};
  });
  const std::string sent = page();
  EXPECT_TRUE(has(sent, "<dt>Sent to</dt><dd>https://reports.example.net</dd>")) << sent;
  EXPECT_TRUE(has(sent, "<dt>Last sent</dt><dd>1h ago (")) << sent;
  EXPECT_TRUE(has(sent, "<dt>State</dt><dd>sent</dd>")) << sent;
  change([](relay_state &state) { state.report->problem = "status <403>"; });
  EXPECT_TRUE(has(page(), "<dt>State</dt><dd>failing: status &lt;403&gt;</dd>")) << page();
}

TEST_F(RelayPage, ShowsThatNothingIsInService) {
  change([this](relay_state &state) { state = new_relay(now_); });
  const std::string text = page();
  EXPECT_TRUE(has(text, "<title>nothing in service - zotconf relay</title>"));
  EXPECT_TRUE(has(text, "no publication is in service"));
  EXPECT_FALSE(has(text, "Config ID"));
}

TEST_F(RelayPage, EscapesWhatComesFromOutside) {
  const std::string hostile = "<img src=x onerror=\"alert(1)\">&";
  change([&hostile](relay_state &state) {
    state.problem = hostile;
    state.config_id = hostile;
    state.signer = hostile;
    state.upstream = hostile;
    state.k_digest = hostile + "\x1b[31m";
  });
  log_.add_refused({.subsys = "AP", .index = hostile}, hostile);
  const std::string text = page();
  EXPECT_FALSE(has(text, "<img"));
  EXPECT_FALSE(has(text, "\"alert"));
  EXPECT_FALSE(has(text, "\x1b"));
  EXPECT_EQ(count_of("&lt;img src=x onerror=&quot;alert(1)&quot;&gt;&amp;", text), 7U) << text;
}

TEST_F(RelayPage, ShowsWhatTheElementFetched) {
  EXPECT_TRUE(has(page(), "no request yet"));
  log_.add_checksum({.subsys = "AP", .index = "001122334455"}, "127.0.0.1");
  EXPECT_TRUE(has(page(), "requested the checksum, but no K"));
  EXPECT_EQ(status()["requests"]["state"].text(), "asked");
  log_.add_k({.subsys = "AP", .index = "001122334455"}, "127.0.0.1", -1, std::string(64, 'a'));
  EXPECT_TRUE(has(page(), "fetched the K in service"));
  EXPECT_EQ(status()["requests"]["state"].text(), "up_to_date");
  EXPECT_EQ(status()["requests"]["client"].text(), "127.0.0.1");
}

TEST_F(RelayPage, ListsElementsThatItDoesNotServe) {
  log_.add_refused({.subsys = "CP", .index = "AABB"}, "127.0.0.2");
  EXPECT_TRUE(has(page(), "CP AABB, requested by 127.0.0.2"));
  const json_value refused = status()["requests"]["refused"];
  ASSERT_EQ(refused.size(), 1);
  EXPECT_EQ(refused[0]["subsys"].text(), "CP");
  EXPECT_EQ(refused[0]["index"].text(), "AABB");
  EXPECT_EQ(refused[0]["client"].text(), "127.0.0.2");
}

TEST_F(RelayPage, SendsItsDataAsJson) {
  const auto answer = get("/status.json");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->get_header_value("Content-Type"), "application/json");
  EXPECT_EQ(answer->get_header_value("Cache-Control"), "no-store");
  EXPECT_EQ(json_value(answer->body)["state"].text(), "good");
}

TEST_F(RelayPage, AnswersAHeadWithoutABody) {
  for (const std::string path : {"/", "/status.json"}) {
    const auto answer = client().Head(path);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200) << path;
    EXPECT_TRUE(answer->body.empty()) << path;
  }
}

TEST_F(RelayPage, LeavesOtherRequestsToTheService) {
  EXPECT_EQ(get("/element.json")->status, 404);
  EXPECT_EQ(client().Post("/", "x", "text/plain")->status, 404);
  zotconf::http_request request;
  request.method = "GET";
  request.path = "/file/x";
  EXPECT_FALSE(zotconf::relay_page::is_asked(request));
  EXPECT_FALSE(page_.answer(request));
  request.path = "/status.json";
  EXPECT_TRUE(zotconf::relay_page::is_asked(request));
}

}  // namespace
}  // namespace zot::test
