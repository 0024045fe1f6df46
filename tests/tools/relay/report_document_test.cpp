// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/report_document.hpp"

#include "tests/tools/relay/served_relay.hpp"

namespace zot::test {
namespace {

constexpr std::time_t now = relay_start;
const std::string time_of_report = "2026-11-23T11:00:00Z";
const std::string then = "2026-11-22T10:00:00Z";

zotconf::report_facts facts_of(const zotconf::relay_state &state) {
  return {.relay = state, .health = zotconf::health_of(state, now)};
}

json_value report_of(const zotconf::report_facts &facts) {
  return json_value(zotconf::report_text(facts, time_of_report));
}

zotconf::element_state element_with(const std::string &digest) {
  zotconf::element_state state;
  state.version = "0.9.9";
  state.who = {.subsys = "AP", .index = "001122334455"};
  state.in_force = {.digest = digest, .config_id = "id"};
  return state;
}

TEST(ReportDocument, NamesTheElementAndTheVersions) {
  zotconf::report_facts facts = facts_of(good_relay(now));
  facts.element = element_with(std::string(64, 'a'));
  const json_value report = report_of(facts);
  EXPECT_EQ(report["format"].number(), 1);
  EXPECT_EQ(report["time"].text(), time_of_report);
  EXPECT_EQ(report["subsys"].text(), "AP");
  EXPECT_EQ(report["index"].text(), "001122334455");
  EXPECT_NE(report["versions"]["relay"].text(), "");
  EXPECT_EQ(report["versions"]["element"].text(), "0.9.9");
  EXPECT_EQ(zotconf::report_path(facts.relay.who), "AP/001122334455.json");
}

TEST(ReportDocument, OfARelayThatHasNothingInService) {
  const json_value report = report_of(facts_of(new_relay(now)));
  EXPECT_EQ(report["relay"]["state"].text(), "nothing");
  EXPECT_TRUE(report["relay"]["problem"].is_null());
  EXPECT_EQ(report["relay"]["kind"].text(), "none");
  EXPECT_FALSE(report["relay"]["refused"].flag());
  EXPECT_TRUE(report["relay"]["refused_digest"].is_null());
  EXPECT_TRUE(report["relay"]["since"].is_null());
  EXPECT_TRUE(report["offered"].is_null());
}

TEST(ReportDocument, OfARelayThatOffersAPublication) {
  const json_value report = report_of(facts_of(good_relay(now)));
  EXPECT_EQ(report["relay"]["state"].text(), "good");
  EXPECT_EQ(report["offered"]["digest"].text(), std::string(64, 'a'));
  EXPECT_EQ(report["offered"]["sequence"].number(), 42);
  EXPECT_EQ(report["offered"]["config_id"].text(), "3f2504e0-4f89-41d3-9a0c-0305e82c3301");
}

TEST(ReportDocument, OfAPublicationWithoutSequenceAndConfigId) {
  zotconf::relay_state state = good_relay(now);
  state.sequence = 0;
  state.config_id = "";
  const json_value report = report_of(facts_of(state));
  EXPECT_TRUE(report["offered"]["sequence"].is_null());
  EXPECT_TRUE(report["offered"]["config_id"].is_null());
}

TEST(ReportDocument, OfARelayThatRefusesAPublication) {
  zotconf::relay_state state = good_relay(now);
  state.problem = "K is not signed";
  state.is_refused = true;
  state.refused_digest = std::string(64, 'c');
  state.problem_since = now - 60;
  const json_value relay = report_of(facts_of(state))["relay"];
  EXPECT_EQ(relay["state"].text(), "problem");
  EXPECT_EQ(relay["problem"].text(), "K is not signed");
  EXPECT_EQ(relay["kind"].text(), "publication");
  EXPECT_TRUE(relay["refused"].flag());
  EXPECT_EQ(relay["refused_digest"].text(), std::string(64, 'c'));
  EXPECT_EQ(relay["since"].text(), "2023-11-14T22:12:20Z");
}

TEST(ReportDocument, OfAnElementThatIsNotKnown) {
  const json_value report = report_of(facts_of(good_relay(now)));
  EXPECT_FALSE(report["element_known"].flag());
  EXPECT_TRUE(report["versions"]["element"].is_null());
  for (const char *const member : {"in_force", "refused", "undo", "problem"}) {
    EXPECT_TRUE(report[member].is_null()) << member;
  }
}

TEST(ReportDocument, OfAnElementWithAConfigurationInForce) {
  zotconf::report_facts facts = facts_of(good_relay(now));
  facts.element = element_with(std::string(64, 'b'));
  const json_value report = report_of(facts);
  EXPECT_TRUE(report["element_known"].flag());
  EXPECT_EQ(report["in_force"]["digest"].text(), std::string(64, 'b'));
  EXPECT_EQ(report["in_force"]["config_id"].text(), "id");
  EXPECT_TRUE(report["refused"].is_null());
}

TEST(ReportDocument, OfAnElementThatRolledBackUndidAndFails) {
  zotconf::report_facts facts = facts_of(good_relay(now));
  facts.element = element_with(std::string(64, 'b'));
  facts.element->refused = {.which = {.digest = std::string(64, 'c'), .config_id = ""},
                            .reason = "apply: exit status 1",
                            .time = then};
  facts.element->undo = {.digest = std::string(64, 'b'), .time = then};
  facts.element->problem = {.text = "get: no answer", .since = then};
  const json_value report = report_of(facts);
  EXPECT_EQ(report["refused"]["digest"].text(), std::string(64, 'c'));
  EXPECT_EQ(report["refused"]["reason"].text(), "apply: exit status 1");
  EXPECT_EQ(report["undo"]["digest"].text(), std::string(64, 'b'));
  EXPECT_EQ(report["problem"]["text"].text(), "get: no answer");
  EXPECT_EQ(report["problem"]["since"].text(), then);
}

TEST(ReportDocument, IsNeverLongerThanAReceiverTakes) {
  const std::string long_text(1'000'000, '"');
  zotconf::relay_state state = good_relay(now);
  state.problem = long_text;
  state.config_id = long_text;
  zotconf::report_facts facts = facts_of(state);
  facts.element = element_with(std::string(64, 'b'));
  facts.element->problem = {.text = zotconf::short_text(long_text), .since = then};
  const std::string text = zotconf::report_text(facts, time_of_report);
  EXPECT_LE(text.size(), size_t{64} << 10);
  EXPECT_EQ(json_value(text)["relay"]["problem"].text().size(), 1024U);
}

TEST(ReportDocument, HasNothingThatChangesByItself) {
  zotconf::relay_state later = good_relay(now);
  later.rounds += 100;
  later.last_attempt += 3000;
  later.last_contact += 3000;
  later.next_attempt += 3000;
  later.bytes_received += 4096;
  later.report.emplace().last_sent = now;
  EXPECT_EQ(zotconf::report_text(facts_of(good_relay(now)), ""),
            zotconf::report_text(facts_of(later), ""));
}

}  // namespace
}  // namespace zot::test
