// SPDX-License-Identifier: Apache-2.0
#include "tools/service/status_rows.hpp"

#include "tests/tools/support/status_service.hpp"

namespace zot::test {
namespace {

using StatusRows = status_service;

TEST_F(StatusRows, ShowsProblemsFirst) {
  write_k("zz", "c");
  write_k("aa", "c");
  write_bytes(publication_ + "/file/knowledge/DP/zz/latest/zz.k", "{}");
  const json_value seen = status_when([](const json_value &now) {
    return now["look"]["complete"].flag() && now["look"]["problems"].number() == 1 &&
           now["look"]["elements"].number() == 3;
  });
  ASSERT_EQ(seen["elements"].size(), 3);
  EXPECT_EQ(seen["elements"][0]["index"].text(), "zz");
  EXPECT_EQ(seen["elements"][1]["index"].text(), "001122334455");
  EXPECT_EQ(seen["elements"][2]["index"].text(), "aa");
  EXPECT_EQ(matching("state=problem"), 1);
  EXPECT_EQ(matching("state=good"), 2);
}

TEST_F(StatusRows, FiltersBySubstringsWithoutCase) {
  write_k("AABB", "north");
  (void)status_when([](const json_value &now) {
    return now["look"]["complete"].flag() && now["look"]["published"].number() == 2;
  });
  EXPECT_EQ(matching("filter="), 2);
  EXPECT_EQ(matching("filter=aabb"), 1);
  EXPECT_EQ(matching("filter=dp"), 1);
  EXPECT_EQ(matching("filter=dp%20aa"), 1);
  EXPECT_EQ(matching("filter=ORT"), 1);
  EXPECT_EQ(matching("filter=3F2504E0"), 1);
  EXPECT_EQ(matching("filter=7.1"), 1);
  EXPECT_EQ(matching("filter=none"), 0);
  const json_value counts = asked("/status.json?filter=aabb&state=problem")["counts"];
  EXPECT_EQ(counts["all"].number(), 1);
  EXPECT_EQ(counts["good"].number(), 1);
  EXPECT_EQ(counts["problem"].number(), 0);
}

TEST_F(StatusRows, AnswersPageByPage) {
  for (int i = 0; i < 9; ++i) {
    write_k("e" + std::to_string(i), "c");
  }
  (void)status_when([](const json_value &now) {
    return now["look"]["complete"].flag() && now["look"]["published"].number() == 10;
  });
  const json_value second = asked("/status.json?size=4&page=2");
  ASSERT_EQ(second["elements"].size(), 4);
  EXPECT_EQ(second["elements"][0]["index"].text(), "e3");
  EXPECT_EQ(second["page"]["pages"].number(), 3);
  EXPECT_EQ(second["page"]["elements"].number(), 10);
  const json_value beyond = asked("/status.json?size=4&page=9");
  EXPECT_EQ(beyond["page"]["number"].number(), 3);
  EXPECT_EQ(beyond["elements"].size(), 2);
}

TEST_F(StatusRows, TellsWhatAnElementFetched) {
  const auto fetch = [this] { return status()["elements"][0]["fetch"]; };
  (void)status_when_read();
  EXPECT_EQ(fetch()["state"].text(), "never");
  ask(checksum_path);
  EXPECT_EQ(fetch()["state"].text(), "asked");
  EXPECT_EQ(fetch()["checksum_sent"].text().back(), 'Z');
  EXPECT_TRUE(fetch()["k_sent"].is_null());
  ask(k_path);
  EXPECT_EQ(fetch()["state"].text(), "up_to_date");
  EXPECT_EQ(fetch()["client"].text(), "127.0.0.1");
  EXPECT_EQ(fetch()["k_config_id"].text(), "3f2504e0-4f89-41d3-9a0c-0305e82c3301");
  const std::string fetched = fetch()["k_checksum"].text();
  EXPECT_EQ(fetched, status()["elements"][0]["checksum"].text());
  publish_source({"--config-id", "00000000-4f89-41d3-9a0c-0305e82c3301"});
  const json_value seen = status_when(
      [](const json_value &now) { return now["elements"][0]["fetch"]["state"].text() == "older"; });
  EXPECT_EQ(seen["elements"][0]["fetch"]["k_checksum"].text(), fetched);
  EXPECT_EQ(seen["counts"]["older"].number(), 1);
  EXPECT_EQ(matching("fetch=older"), 1);
  EXPECT_EQ(matching("fetch=never"), 0);
  EXPECT_EQ(seen["fetches"]["since"].text().back(), 'Z');
  EXPECT_EQ(seen["fetches"]["forgotten"].number(), 0);
}

TEST_F(StatusRows, CountsNoHeadAsAFetch) {
  (void)status_when_read();
  ASSERT_EQ(client().Head(k_path)->status, 200);
  EXPECT_EQ(status_after_requests(1)["elements"][0]["fetch"]["state"].text(), "never");
}

TEST_F(StatusRows, TellsAnElementThatAsksForWhatIsNotPublished) {
  (void)status_when_read();
  ask("/file/knowledge/AP/FFFF/latest/FFFF.checksum");
  const json_value seen = status();
  EXPECT_EQ(seen["look"]["published"].number(), 1);
  EXPECT_EQ(seen["look"]["elements"].number(), 2);
  const json_value element = seen["elements"][0];
  EXPECT_EQ(element["index"].text(), "FFFF");
  EXPECT_EQ(element["state"].text(), "problem");
  EXPECT_EQ(element["fetch"]["state"].text(), "asked");
  EXPECT_NE(element["problem"]["reason"].text().find("127.0.0.1"), std::string::npos);
  EXPECT_EQ(element["problem"]["status_name"].text(), "ZOT_ERR_NOT_FOUND");
}

}  // namespace
}  // namespace zot::test
