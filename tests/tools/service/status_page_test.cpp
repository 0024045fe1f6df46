// SPDX-License-Identifier: Apache-2.0
#include "tools/service/status_page.hpp"

#include "tests/tools/support/status_service.hpp"

namespace zot::test {
namespace {

using StatusPage = status_service;

TEST_F(StatusPage, IsHtmlThatNoOneKeeps) {
  const auto answer = get("/");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_EQ(answer->get_header_value("Content-Type"), "text/html; charset=utf-8");
  EXPECT_EQ(answer->get_header_value("Cache-Control"), "no-store");
  EXPECT_EQ(answer->get_header_value("X-Content-Type-Options"), "nosniff");
  EXPECT_TRUE(answer->body.starts_with("<!doctype html>"));
  EXPECT_TRUE(answer->body.ends_with("</html>\n"));
}

TEST_F(StatusPage, LetsNothingRunButItsOwnScript) {
  const std::string policy = get("/")->get_header_value("Content-Security-Policy");
  EXPECT_TRUE(policy.starts_with("default-src 'none';")) << policy;
  EXPECT_NE(policy.find("script-src 'sha256-"), std::string::npos) << policy;
  EXPECT_NE(policy.find("style-src 'sha256-"), std::string::npos) << policy;
  EXPECT_NE(policy.find("connect-src 'self'"), std::string::npos) << policy;
  EXPECT_EQ(policy.find("unsafe"), std::string::npos) << policy;
}

TEST_F(StatusPage, AsksNoOtherHost) {
  const std::string page = get("/")->body;
  EXPECT_EQ(page.find("http:"), std::string::npos);
  EXPECT_EQ(page.find("https:"), std::string::npos);
  EXPECT_EQ(page.find("src="), std::string::npos);
}

TEST_F(StatusPage, AnswersAHeadWithTheSameHeader) {
  for (const std::string path : {"/", "/status.json", "/element.json"}) {
    const auto answer = client().Head(path);
    ASSERT_TRUE(answer) << path;
    EXPECT_EQ(answer->status, path == "/element.json" ? 400 : 200) << path;
    EXPECT_EQ(answer->get_header_value("Content-Type"),
              get(path)->get_header_value("Content-Type"));
    EXPECT_NE(answer->get_header_value("Content-Length"), "0") << path;
    EXPECT_NE(answer->get_header_value("Content-Security-Policy"), "") << path;
    EXPECT_TRUE(answer->body.empty()) << path;
  }
}

TEST_F(StatusPage, TakesNoOtherMethod) {
  EXPECT_EQ(client().Post("/", "x", "text/plain")->status, 404);
  EXPECT_EQ(client().Delete("/status.json")->status, 404);
}

TEST_F(StatusPage, TellsItsServiceAsJson) {
  const auto answer = get("/status.json");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->get_header_value("Content-Type"), "application/json");
  EXPECT_EQ(answer->get_header_value("Cache-Control"), "no-store");
  const json_value service = json_value(answer->body)["service"];
  EXPECT_EQ(service["host"].text(), "127.0.0.1");
  EXPECT_EQ(service["port"].number(), service_->port());
  EXPECT_EQ(service["publication"].text(), publication_);
  EXPECT_EQ(service["started"].text().size(), std::string("2026-03-31T08:30:00Z").size());
  EXPECT_GE(service["uptime_seconds"].number(), 0);
}

TEST_F(StatusPage, CountsTheTimeItIsUp) {
  const json_value seen = status_when(
      [](const json_value &now) { return now["service"]["uptime_seconds"].number() >= 1; });
  EXPECT_GE(seen["service"]["uptime_seconds"].number(), 1);
}

TEST_F(StatusPage, RefusesABadQueryWithTheParameter) {
  const auto answer = get("/status.json?size=201");
  EXPECT_EQ(answer->status, 400);
  EXPECT_EQ(answer->get_header_value("Content-Type"), "application/json");
  EXPECT_EQ(json_value(answer->body)["parameter"].text(), "size");
  EXPECT_EQ(json_value(answer->body)["error"].text(), "size has to be a number from 1 to 200");
}

TEST_F(StatusPage, SendsNothingWhenNothingHasChanged) {
  (void)status_when_read();
  const std::string tag = get("/status.json")->get_header_value("ETag");
  ASSERT_NE(tag, "");
  std::this_thread::sleep_for(1100ms);
  const auto same = get_since("/status.json", tag);
  EXPECT_EQ(same->status, 304);
  EXPECT_TRUE(same->body.empty());
  EXPECT_EQ(same->get_header_value("ETag"), tag);
  EXPECT_EQ(get_since("/status.json?filter=none", tag)->status, 200);
  ask(k_path);
  const auto changed = get_since("/status.json", tag);
  EXPECT_EQ(changed->status, 200);
  EXPECT_NE(changed->get_header_value("ETag"), tag);
}

TEST_F(StatusPage, TellsRequestsNewestFirst) {
  ask(checksum_path);
  ask(k_path);
  ask("/tgz", R"({"files": ["/config/Wlan/a/1"]})");
  ask("/tgz", R"({"files": ["/config/Wlan/a/9"]})");
  ask("/file/knowledge/AP/00/latest/00.k");
  const json_value requests = status()["requests"];
  ASSERT_EQ(requests.size(), 5);
  const std::vector<std::string> results = {"not published", "no such file: /config/Wlan/a/9",
                                            "sent 1 file", "sent K", "sent the checksum"};
  for (int i = 0; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i]["result"].text(), results.at(static_cast<size_t>(i)));
    EXPECT_EQ(requests[i]["client"].text(), "127.0.0.1");
    EXPECT_GT(requests[i]["duration_us"].number(), 0);
  }
  EXPECT_EQ(requests[1]["method"].text(), "POST");
  EXPECT_EQ(requests[1]["status"].number(), 404);
  EXPECT_EQ(requests[4]["path"].text(), checksum_path);
  EXPECT_EQ(requests[4]["status"].number(), 200);
  EXPECT_EQ(requests[4]["bytes"].number(), 65);
}

TEST_F(StatusPage, CountsNoSignatureAsAFetchOfAnElement) {
  write_bytes(publication_ + k_path + ".p7s", "a signature");
  ask(k_path + ".p7s");
  ask("/file/knowledge/AP/00/latest/00.k.p7s");
  const json_value seen = status_when_read();
  EXPECT_EQ(seen["requests"][0]["result"].text(), "not published");
  EXPECT_EQ(seen["requests"][1]["result"].text(), "sent the signature");
  ASSERT_EQ(seen["elements"].size(), 1);
  EXPECT_EQ(seen["elements"][0]["fetch"]["state"].text(), "never");
}

TEST_F(StatusPage, CountsNoRequestOfItsOwn) {
  ASSERT_TRUE(get("/"));
  ASSERT_TRUE(get("/status.json"));
  ASSERT_TRUE(get("/status.json?page=0"));
  ASSERT_TRUE(get("/element.json"));
  ASSERT_TRUE(client().Head("/"));
  ASSERT_TRUE(get("/asked"));
  const json_value seen = status_after_requests(1);
  EXPECT_EQ(seen["requests_total"].number(), 1);
  ASSERT_EQ(seen["requests"].size(), 1);
  EXPECT_EQ(seen["requests"][0]["path"].text(), "/asked");
}

TEST_F(StatusPage, KeepsTheLastFiftyRequests) {
  for (int i = 1; i <= 60; ++i) {
    ask("/asked/" + std::to_string(i));
  }
  const json_value seen = status();
  EXPECT_EQ(seen["requests_total"].number(), 60);
  ASSERT_EQ(seen["requests"].size(), 50);
  EXPECT_EQ(asked("/status.json?requests=7")["requests"].size(), 7);
  EXPECT_EQ(seen["requests"][0]["path"].text(), "/asked/60");
  EXPECT_EQ(seen["requests"][49]["path"].text(), "/asked/11");
}

TEST_F(StatusPage, KeepsHostilePathsWithinTheirText) {
  ask(R"(/",%22x%22:1,%5C<script>alert(1)</script>%0a%00%ff%C3%A4)");
  ask("/" + std::string(4000, 'x'));
  const json_value requests = status()["requests"];
  ASSERT_EQ(requests.size(), 2);
  EXPECT_EQ(requests[1]["path"].text(), R"(/","x":1,\<script>alert(1)</script>???ä)");
  EXPECT_EQ(requests[0]["path"].text(), "/" + std::string(299, 'x') + "…");
}

}  // namespace
}  // namespace zot::test
