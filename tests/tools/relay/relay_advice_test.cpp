// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_advice.hpp"

#include "tests/tools/relay/served_relay.hpp"
#include "tests/tools/support/cached_element.hpp"

namespace zot::test {
namespace {

constexpr std::time_t now = relay_start;

// The advice for a relay with this problem.
std::string advice_for(const std::string &problem, bool is_refused = false) {
  zotconf::relay_state state = good_relay(now);
  state.problem = problem;
  state.is_refused = is_refused;
  state.problem_since = now - 100;
  const auto notes = zotconf::notes_of(state, now);
  EXPECT_EQ(notes.size(), 1U);
  EXPECT_EQ(notes.at(0).text, problem);
  EXPECT_EQ(notes.at(0).since, now - 100);
  return notes.at(0).advice;
}

TEST(RelayAdvice, SaysNothingOfAGoodRelay) {
  EXPECT_TRUE(zotconf::notes_of(good_relay(now), now).empty());
}

TEST(RelayAdvice, NamesWhatToCheckForEachProblem) {
  EXPECT_TRUE(has(advice_for("Couldn't connect to server"), "--upstream"));
  EXPECT_TRUE(has(advice_for("SSL peer certificate or SSH remote key was not OK"), "--ca"));
  EXPECT_TRUE(has(advice_for("not signed", true), "--keyring"));
  EXPECT_TRUE(has(advice_for("not signed", true), "AP 001122334455"));
  EXPECT_TRUE(has(advice_for("cannot write x: No space left on device"), "--store"));
}

TEST(RelayAdvice, NamesTheProblemBeforeWhatFollowsFromIt) {
  zotconf::relay_state state = new_relay(now);
  state.problem = "no connection";
  const auto notes = zotconf::notes_of(state, state.started + 7200);
  ASSERT_EQ(notes.size(), 3U);
  EXPECT_EQ(notes[0].text, "no connection");
  EXPECT_EQ(notes[1].text, "no publication is in service");
  EXPECT_EQ(notes[2].text, "no contact with the server for 2h");
}

TEST(RelayAdvice, ComparesTheLastContactWithTheLimit) {
  const auto notes = zotconf::notes_of(good_relay(now), now + 7200 - 10);
  ASSERT_EQ(notes.size(), 1U);
  EXPECT_EQ(notes[0].text, "no contact with the server for 2h");
  EXPECT_EQ(notes[0].since, now - 10);
  EXPECT_TRUE(has(notes[0].advice, "--max-age is 1h. What")) << notes[0].advice;
}

}  // namespace
}  // namespace zot::test
