// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_json.hpp"

#include <set>

#include "tests/tools/relay/served_relay.hpp"
#include "tests/tools/support/cached_element.hpp"

namespace zot::test {
namespace {

constexpr std::time_t now = relay_start;
constexpr const char *heading = "\n## status.json of a relay\n";

std::string text_of(const zotconf::relay_state &state, const zotconf::element_log &log = {}) {
  zotconf::json_document document;
  zotconf::describe_relay(document.root(), state, log, now);
  return document.line();
}

json_value described(const zotconf::relay_state &state) {
  return json_value(text_of(state));
}

// The keys with their parents: "contact.problem".
void collect_keys(const cJSON *item, const std::string &above, std::set<std::string> &keys) {
  for (const cJSON *child = item->child; child != nullptr; child = child->next) {
    if (child->string == nullptr) {
      collect_keys(child, above, keys);
      continue;
    }
    keys.insert(above + child->string);
    collect_keys(child, above + child->string + ".", keys);
  }
}

TEST(RelayJson, HasThePublicationInService) {
  const json_value publication = described(good_relay(now))["publication"];
  EXPECT_EQ(publication["digest"].text(), std::string(64, 'a'));
  EXPECT_EQ(publication["sequence"].number(), 42);
  EXPECT_EQ(publication["config_id"].text(), "3f2504e0-4f89-41d3-9a0c-0305e82c3301");
  EXPECT_EQ(publication["signer"].text(), "CN=publisher");
  EXPECT_EQ(publication["signed_at"].text(), "2023-11-14T22:01:40Z");
  EXPECT_EQ(publication["files"].number(), 3);
  EXPECT_EQ(publication["bytes"].number(), 2048);
  EXPECT_EQ(publication["since"].text(), "2023-11-14T22:03:20Z");
  EXPECT_EQ(publication["age_seconds"].number(), 600);
}

TEST(RelayJson, HasNullForWhatIsNotKnown) {
  const json_value state = described(new_relay(now));
  EXPECT_EQ(state["state"].text(), "nothing");
  EXPECT_TRUE(state["publication"].is_null());
  for (const char *const key : {"last_attempt", "last_contact", "age_seconds", "problem",
                                "problem_since", "next_attempt"}) {
    EXPECT_TRUE(state["contact"][key].is_null()) << key;
  }
  for (const char *const key : {"checksum_sent", "k_sent", "k_checksum", "k_config_id", "client"}) {
    EXPECT_TRUE(state["requests"][key].is_null()) << key;
  }
}

TEST(RelayJson, HasNullForAnUnsignedPublicationWithoutSequence) {
  zotconf::relay_state unsigned_relay = good_relay(now);
  unsigned_relay.sequence = 0;
  unsigned_relay.signer = "";
  unsigned_relay.signed_at = 0;
  unsigned_relay.config_id = "";
  const json_value publication = described(unsigned_relay)["publication"];
  for (const char *const key : {"sequence", "signer", "signed_at", "config_id"}) {
    EXPECT_TRUE(publication[key].is_null()) << key;
  }
}

TEST(RelayJson, HasTheContactWithTheServer) {
  zotconf::relay_state state = good_relay(now);
  state.problem = "K is not signed";
  state.is_refused = true;
  state.problem_since = now - 60;
  const json_value contact = described(state)["contact"];
  EXPECT_EQ(contact["last_contact"].text(), "2023-11-14T22:13:10Z");
  EXPECT_EQ(contact["age_seconds"].number(), 10);
  EXPECT_EQ(contact["max_age_seconds"].number(), 3600);
  EXPECT_FALSE(contact["stale"].flag());
  EXPECT_EQ(contact["problem"].text(), "K is not signed");
  EXPECT_EQ(contact["kind"].text(), "publication");
  EXPECT_TRUE(contact["refused"].flag());
  EXPECT_EQ(contact["problem_since"].text(), "2023-11-14T22:12:20Z");
  EXPECT_EQ(contact["next_attempt"].text(), "2023-11-14T22:13:40Z");
}

TEST(RelayJson, HasNoReportsUnlessTheyAreSent) {
  EXPECT_TRUE(described(good_relay(now))["report"].is_null());
}

TEST(RelayJson, HasTheStateOfTheReports) {
  zotconf::relay_state state = good_relay(now);
  state.report = {.url = "https://reports.example.net", .is_pending = true};
  const json_value before = described(state)["report"];
  EXPECT_EQ(before["url"].text(), "https://reports.example.net");
  EXPECT_TRUE(before["last_sent"].is_null());
  EXPECT_TRUE(before["problem"].is_null());
  EXPECT_TRUE(before["pending"].flag());
  state.report->last_sent = now - 60;
  state.report->problem = "status 403";
  const json_value after = described(state)["report"];
  EXPECT_EQ(after["last_sent"].text(), "2023-11-14T22:12:20Z");
  EXPECT_EQ(after["problem"].text(), "status 403");
}

TEST(RelayJson, HasCountersWithAllTheirDigits) {
  zotconf::relay_state state = good_relay(now);
  state.bytes_received = 18446744073709551615U;
  const std::string text = text_of(state);
  EXPECT_TRUE(has(text, "\"bytes_received\":18446744073709551615")) << text;
  const json_value counters = json_value(text)["counters"];
  EXPECT_EQ(counters["rounds"].number(), 120);
  EXPECT_EQ(counters["failures"].number(), 2);
  EXPECT_EQ(counters["updates"].number(), 1);
  EXPECT_EQ(counters["bytes_saved"].number(), 1024);
}

TEST(RelayJson, ListsAtMostTwentyElementsThatAreNotServed) {
  zotconf::element_log log;
  for (int index = 0; index < 30; ++index) {
    log.add_refused({.subsys = "AP", .index = std::to_string(index)}, "127.0.0.1");
  }
  const json_value refused = json_value(text_of(good_relay(now), log))["requests"]["refused"];
  ASSERT_EQ(refused.size(), 20);
  EXPECT_EQ(refused[0]["index"].text(), "29");
}

TEST(RelayJson, IsDescribedKeyForKey) {
  zotconf::element_log log;
  log.add_refused({.subsys = "AP", .index = "1"}, "127.0.0.1");
  zotconf::relay_state state = good_relay(now);
  state.problem = "no connection";
  state.report.emplace();
  std::set<std::string> keys;
  const zot::json_tree tree(cJSON_Parse(text_of(state, log).c_str()));
  collect_keys(tree.get(), "", keys);
  const std::string document = read_bytes(ZOTCONF_JSON_DOCUMENT);
  const size_t begin = document.find(heading);
  ASSERT_NE(begin, std::string::npos);
  const std::string section = document.substr(begin, document.find("\n## ", begin + 4) - begin);
  EXPECT_GT(keys.size(), 40U);
  for (const std::string &key : keys) {
    EXPECT_TRUE(has(section, "`" + key + "`")) << key;
  }
}

}  // namespace
}  // namespace zot::test
