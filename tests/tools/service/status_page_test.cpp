// SPDX-License-Identifier: Apache-2.0
#include "tools/service/status_page.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"
#include "tools/service/request_log.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;

const std::string k_path = "/file/knowledge/AP/001122334455/latest/001122334455.k";
const std::string checksum_path = "/file/knowledge/AP/001122334455/latest/001122334455.checksum";

class StatusPage : public testing::Test {
 protected:
  StatusPage() {
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
  [[nodiscard]] json_value status() const {
    const auto answer = get("/status.json");
    return json_value(answer ? answer->body : "no answer");
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
  [[nodiscard]] json_value status_with_damage() const {
    return status_when(
        [](const json_value &seen) { return seen["publications"][0]["damaged"].flag(); });
  }

  temp_dir dir_;
  std::string publication_ = dir_ / "pub";
  std::unique_ptr<serving> service_;
  int asked_ = 0;
};

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
  for (const std::string path : {"/", "/status.json"}) {
    const auto answer = client().Head(path);
    ASSERT_TRUE(answer) << path;
    EXPECT_EQ(answer->status, 200) << path;
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

TEST_F(StatusPage, TellsWhatIsPublished) {
  const json_value seen = status();
  EXPECT_TRUE(seen["problem"].is_null());
  ASSERT_EQ(seen["publications"].size(), 1);
  const json_value publication = seen["publications"][0];
  EXPECT_EQ(publication["subsys"].text(), "AP");
  EXPECT_EQ(publication["index"].text(), "001122334455");
  EXPECT_FALSE(publication["damaged"].flag());
  EXPECT_TRUE(publication["reason"].is_null());
  EXPECT_EQ(publication["config_id"].text(), "3f2504e0-4f89-41d3-9a0c-0305e82c3301");
  EXPECT_EQ(publication["cluster"].text(), "cluster-1");
  EXPECT_EQ(publication["firmware"].text(), "7.1.0");
  EXPECT_EQ(publication["checksum"].text() + "\n", read_bytes(publication_ + checksum_path));
  EXPECT_EQ(publication["written"].text().back(), 'Z');
  EXPECT_EQ(publication["entries"].number(), 3);
  EXPECT_EQ(publication["bytes"].number(), 23);
}

TEST_F(StatusPage, CountsEntriesByCategory) {
  const json_value categories = status()["publications"][0]["categories"];
  ASSERT_EQ(categories.size(), 2);
  EXPECT_EQ(categories[0]["category"].text(), "Wlan");
  EXPECT_EQ(categories[0]["entries"].number(), 2);
  EXPECT_EQ(categories[0]["bytes"].number(), 13);
  EXPECT_EQ(categories[1]["category"].text(), "Zone");
  EXPECT_EQ(categories[1]["entries"].number(), 1);
  EXPECT_EQ(categories[1]["bytes"].number(), 10);
}

TEST_F(StatusPage, SeesANewPublication) {
  ASSERT_EQ(status()["publications"][0]["entries"].number(), 3);
  write_bytes(dir_ / "source/Vlan/v", "id=7");
  publish_source();
  const json_value seen = status_when([](const json_value &now) {
    const json_value publication = now["publications"][0];
    return !publication["damaged"].flag() && publication["entries"].number() == 4;
  });
  EXPECT_EQ(seen["publications"][0]["entries"].number(), 4);
  EXPECT_TRUE(seen["publications"][0]["firmware"].is_null());
}

TEST_F(StatusPage, TellsADamagedKWithTheReason) {
  ASSERT_FALSE(status()["publications"][0]["damaged"].flag());
  write_bytes(publication_ + k_path, read_bytes(publication_ + k_path) + " ");
  const json_value publication = status_with_damage()["publications"][0];
  EXPECT_TRUE(publication["damaged"].flag());
  EXPECT_NE(publication["reason"].text().find("checksum mismatch"), std::string::npos)
      << publication["reason"].text();
  EXPECT_TRUE(publication["entries"].is_null());
  EXPECT_EQ(publication["categories"].size(), 0);
}

TEST_F(StatusPage, ReadsAKAgainOnlyWhenItsFileHasChanged) {
  const std::string path = publication_ + k_path;
  const auto time = std::filesystem::last_write_time(path);
  const double up = status()["service"]["uptime_seconds"].number();
  std::fstream(path, std::ios::in | std::ios::out).write("?", 1);
  std::filesystem::last_write_time(path, time);
  const json_value seen = status_when(
      [up](const json_value &now) { return now["service"]["uptime_seconds"].number() >= up + 3; });
  EXPECT_FALSE(seen["publications"][0]["damaged"].flag());
  std::filesystem::last_write_time(path, time + 1s);
  EXPECT_TRUE(status_with_damage()["publications"][0]["damaged"].flag());
}

TEST_F(StatusPage, TellsAKWithoutItsChecksum) {
  std::filesystem::remove(publication_ + checksum_path);
  EXPECT_NE(status_with_damage()["publications"][0]["reason"].text().find("no checksum file"),
            std::string::npos);
}

TEST_F(StatusPage, ReadsNoLinkOutOfTheFolder) {
  std::filesystem::rename(publication_ + k_path, dir_ / "elsewhere.k");
  std::filesystem::create_symlink(dir_ / "elsewhere.k", publication_ + k_path);
  const json_value publication = status_with_damage()["publications"][0];
  EXPECT_NE(publication["reason"].text().find("not served"), std::string::npos);
  EXPECT_TRUE(publication["cluster"].is_null());
}

TEST_F(StatusPage, TellsAnEmptyFolder) {
  std::filesystem::create_directories(dir_ / "empty");
  service_ = std::make_unique<serving>(dir_ / "empty");
  const json_value seen = status();
  EXPECT_TRUE(seen["problem"].is_null());
  EXPECT_EQ(seen["publications"].size(), 0);
  EXPECT_EQ(seen["requests"].size(), 0);
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

TEST_F(StatusPage, CountsNoRequestOfItsOwn) {
  ASSERT_TRUE(get("/"));
  ASSERT_TRUE(get("/status.json"));
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

TEST_F(StatusPage, StaysQuickWithTenThousandEntries) {
  std::ostringstream k;
  k << R"({"clusterId": "cluster-1", "gpbs": [)";
  for (int i = 1; i <= 10000; ++i) {
    k << (i > 1 ? "," : "") << R"({"path": "/Vlan/v)" << i << R"(/1", "size": 2, "checksum": ")"
      << std::string(64, 'a') << R"("})";
  }
  k << "]}";
  write_bytes(publication_ + k_path, k.str());
  write_bytes(publication_ + checksum_path, sha256_hex(k.str()) + "\n");
  const json_value seen = status_when([](const json_value &now) {
    const json_value publication = now["publications"][0];
    return !publication["damaged"].flag() && publication["entries"].number() == 10000;
  });
  ASSERT_EQ(seen["publications"][0]["bytes"].number(), 20000);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(get("/status.json"));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
}

}  // namespace
}  // namespace zot::test
