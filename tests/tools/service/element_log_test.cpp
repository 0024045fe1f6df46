// SPDX-License-Identifier: Apache-2.0
#include "tools/service/element_log.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "tests/support/files.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

using zotconf::element;
using zotconf::element_log;
using zotconf::fetch_state;

const std::string sum_a(64, 'a');
const std::string sum_b(64, 'b');
const std::string id = "3f2504e0-4f89-41d3-9a0c-0305e82c3301";
const element one{.subsys = "AP", .index = "1"};
const element other{.subsys = "AP", .index = "2"};

class ElementLog : public testing::Test {
 protected:
  void send_k(element_log &log, const element &who, const std::string &k,
              const std::string &announced) const {
    write_bytes(dir_ / "k", k);
    const zot::descriptor file(::open((dir_ / "k").c_str(), O_RDONLY | O_CLOEXEC));
    log.add_k(who, "10.0.0.1", file.get(), announced);
  }
  [[nodiscard]] std::string config_id_of(const std::string &k) const {
    element_log log;
    send_k(log, one, k, sum_a + "\n");
    return log.fetches_of(one)->k_config_id;
  }

  temp_dir dir_;
};

TEST_F(ElementLog, KnowsNothingOfAnElementThatNeverAsked) {
  const element_log log;
  EXPECT_FALSE(log.fetches_of(one).has_value());
  EXPECT_EQ(log.state_of(one, sum_a), fetch_state::never);
}

TEST_F(ElementLog, KeepsARequestForTheChecksum) {
  element_log log;
  log.add_checksum(one, "10.0.0.1");
  EXPECT_TRUE(log.fetches_of(one)->checksum_sent.has_value());
  EXPECT_FALSE(log.fetches_of(one)->k_sent.has_value());
  EXPECT_EQ(log.fetches_of(one)->client, "10.0.0.1");
  EXPECT_EQ(log.state_of(one, sum_a), fetch_state::asked);
}

TEST_F(ElementLog, KeepsWhichKWasSent) {
  element_log log;
  send_k(log, one, R"({"configId": ")" + id + R"(", "gpbs": []})", sum_a + "\n");
  EXPECT_TRUE(log.fetches_of(one)->k_sent.has_value());
  EXPECT_EQ(log.fetches_of(one)->k_checksum, sum_a);
  EXPECT_EQ(log.fetches_of(one)->k_config_id, id);
  EXPECT_EQ(log.state_of(one, sum_a), fetch_state::up_to_date);
  EXPECT_EQ(log.state_of(one, sum_b), fetch_state::older);
  EXPECT_EQ(log.state_of(other, sum_a), fetch_state::never);
}

TEST_F(ElementLog, TakesNoConfigIdButTheMemberOfK) {
  EXPECT_EQ(config_id_of(R"({"gpbs": [{"path": "\"configId\": )" + id + R"("}]})"), "");
  EXPECT_EQ(config_id_of(R"({"firmwareVersion": "\"configId\": \")" + id + R"(\"", "gpbs": []})"),
            "");
  EXPECT_EQ(config_id_of(R"({"configId": 7, "clusterId": ")" + id + R"("})"), "");
  EXPECT_EQ(config_id_of(R"({"configId": "no uuid", "gpbs": []})"), "");
  EXPECT_EQ(config_id_of(R"({"configId": ")"), "");
  EXPECT_EQ(config_id_of(""), "");
  EXPECT_EQ(config_id_of("{\n\t\"configId\":\t\"" + id + "\",\n\t\"gpbs\":\t[]\n}"), id);
}

TEST_F(ElementLog, ForgetsTheElementThatAskedLongestAgo) {
  element_log log(element_log::limits{.elements = 2, .refused = 2});
  const auto begin = log.counted();
  log.add_checksum(one, "");
  log.add_checksum(other, "");
  log.add_checksum(one, "");
  EXPECT_EQ(log.counted().since, begin.since);
  EXPECT_EQ(log.counted().forgotten, 0);
  log.add_checksum({.subsys = "DP", .index = "3"}, "");
  EXPECT_TRUE(log.fetches_of(one).has_value());
  EXPECT_FALSE(log.fetches_of(other).has_value());
  EXPECT_EQ(log.counted().forgotten, 1);
  EXPECT_GT(log.counted().since, begin.since);
}

TEST_F(ElementLog, KeepsWhoAskedInVainApart) {
  element_log log(element_log::limits{.elements = 1, .refused = 2});
  log.add_checksum(one, "");
  for (const std::string index : {"x", "y", "x", "z"}) {
    log.add_refused({.subsys = "AP", .index = index}, "10.0.0.9");
  }
  EXPECT_TRUE(log.fetches_of(one).has_value());
  const auto refused = log.refused(0);
  ASSERT_EQ(refused.size(), 2);
  EXPECT_EQ(refused[0].who.index, "z");
  EXPECT_EQ(refused[1].who.index, "x");
  EXPECT_EQ(refused[0].client, "10.0.0.9");
  EXPECT_TRUE(log.refused(refused[0].asked + 1).empty());
}

}  // namespace
}  // namespace zot::test
