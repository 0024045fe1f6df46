// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/element_standing.hpp"

#include <limits>

#include "tests/tools/fleet/reporting.hpp"
#include "tools/output/figures.hpp"

namespace zot::test {
namespace {

using zotconf::element_standing;
using zotconf::report_reading;
using zotconf::standing;

constexpr std::time_t now = 1800000000;
const std::string wanted(64, 'd');

report_reading reading_of(const report_words &words, std::time_t received = now) {
  report_reading read = zotconf::parse_report(report_text(words));
  read.report.value().received = received;
  return read;
}

element_standing judge(const report_reading &read) {
  return zotconf::standing_of(read, wanted, now, std::chrono::seconds(100));
}

element_standing judge(const report_words &words) {
  return judge(reading_of(words));
}

TEST(ElementStanding, IsSilentWithoutAReport) {
  const element_standing found = judge(report_reading{});
  EXPECT_EQ(found.state, standing::silent);
  EXPECT_EQ(found.reason, "no report");
}

TEST(ElementStanding, IsSilentWithADamagedReport) {
  const element_standing found = judge({.report = std::nullopt, .wrong = "it is empty"});
  EXPECT_EQ(found.state, standing::silent);
  EXPECT_EQ(found.reason, "the report cannot be used: it is empty");
}

TEST(ElementStanding, IsSilentAfterTheLimitOnly) {
  EXPECT_EQ(judge(reading_of({.in_force = wanted}, now - 100)).state, standing::in_force);
  const element_standing found = judge(reading_of({.in_force = wanted}, now - 101));
  EXPECT_EQ(found.state, standing::silent);
  EXPECT_EQ(found.reason, "no report since " + zotconf::iso_time(now - 101));
}

TEST(ElementStanding, IsNotSilentIfTheFileIsOfTheFuture) {
  EXPECT_EQ(judge(reading_of({.in_force = wanted}, now + 1000)).state, standing::in_force);
}

TEST(ElementStanding, IsSilentWithAFileOfTheDistantPast) {
  constexpr std::time_t distant = std::numeric_limits<std::time_t>::min();
  EXPECT_EQ(judge(reading_of({.in_force = wanted}, distant)).state, standing::silent);
}

TEST(ElementStanding, IsInForceWhateverElseIsReported) {
  const element_standing found = judge({.in_force = wanted,
                                        .refused = wanted,
                                        .reason = "x",
                                        .problem = "y",
                                        .relay_problem = "z",
                                        .relay_refused = wanted});
  EXPECT_EQ(found.state, standing::in_force);
  EXPECT_EQ(found.reason, "");
}

TEST(ElementStanding, IsRefusedByTheElementBeforeTheRelay) {
  const element_standing found = judge({.in_force = older_digest,
                                        .refused = wanted,
                                        .reason = "apply: exit status 1",
                                        .problem = "y",
                                        .relay_problem = "z",
                                        .relay_refused = wanted});
  EXPECT_EQ(found.state, standing::refused);
  EXPECT_EQ(found.reason, "apply: exit status 1");
}

TEST(ElementStanding, IsRefusedByTheRelay) {
  for (const auto &offered : {std::optional<std::string>(), std::optional(older_digest)}) {
    const element_standing found = judge({.problem = "y",
                                          .relay_problem = "K is not signed",
                                          .offered = offered,
                                          .relay_refused = wanted});
    EXPECT_EQ(found.state, standing::refused);
    EXPECT_EQ(found.reason, "K is not signed");
  }
}

TEST(ElementStanding, IsNotRefusedByARelayThatOffersTheK) {
  const element_standing found =
      judge({.relay_problem = "z", .offered = wanted, .relay_refused = wanted});
  EXPECT_EQ(found.state, standing::failing);
}

TEST(ElementStanding, IsNotRefusedIfAnotherKWas) {
  EXPECT_EQ(judge({.refused = older_digest, .reason = "x"}).state, standing::waiting);
  EXPECT_EQ(judge({.relay_problem = "x", .relay_refused = older_digest}).state, standing::failing);
}

TEST(ElementStanding, IsFailingWithTheProblemOfTheElementFirst) {
  const element_standing found = judge({.problem = "get: timeout", .relay_problem = "no route"});
  EXPECT_EQ(found.state, standing::failing);
  EXPECT_EQ(found.reason, "get: timeout");
  EXPECT_EQ(judge({.relay_problem = "no route"}).reason, "no route");
}

TEST(ElementStanding, SaysThatNoReasonIsStated) {
  EXPECT_EQ(judge({.refused = wanted}).reason, "no reason is stated");
  EXPECT_EQ(judge({.problem = ""}).reason, "no reason is stated");
  EXPECT_EQ(judge({.relay_refused = wanted}).reason, "no reason is stated");
}

TEST(ElementStanding, IsWaitingOtherwise) {
  const element_standing found = judge({.in_force = older_digest, .offered = wanted});
  EXPECT_EQ(found.state, standing::waiting);
  EXPECT_EQ(found.reason, "");
}

TEST(IsAhead, CountsTenMinutesOfAdvance) {
  zotconf::element_report report;
  report.time = zotconf::iso_time(now + 600);
  EXPECT_FALSE(zotconf::is_ahead(report, now));
  report.time = zotconf::iso_time(now + 601);
  EXPECT_TRUE(zotconf::is_ahead(report, now));
}

TEST(IsReceivedAhead, CountsTenMinutesOfAdvance) {
  zotconf::element_report report;
  report.received = now + 600;
  EXPECT_FALSE(zotconf::is_received_ahead(report, now));
  report.received = now + 601;
  EXPECT_TRUE(zotconf::is_received_ahead(report, now));
}

TEST(IsAhead, SkipsWhatIsNoTime) {
  zotconf::element_report report;
  for (const std::string text :
       {"", "z", "9999", "9999-99-99T99:99:99", "9999-99-99x99:99:99Z", "9999-99-99T99:99:99Zx"}) {
    report.time = text;
    EXPECT_FALSE(zotconf::is_ahead(report, now)) << text;
  }
}

}  // namespace
}  // namespace zot::test
