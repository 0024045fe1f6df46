// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/cycle/verdict.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "verdict_fixture.hpp"

namespace {

using namespace zot::test;

constexpr const char *commit = "zot_priv_commit_conf";
constexpr const char *roll_back = "zot_priv_commit_fail_k";

// Commit and rollback begin with the same checks.
struct verdict {
  const char *name;
  int (*run)(zot_ctx *);
  const char *dev_mode_line;
  const char *same_k_text;
  const char *not_ready_text;

  friend void PrintTo(const verdict &which, std::ostream *out) { *out << which.name; }
};

class Verdict : public testing::TestWithParam<verdict> {
 protected:
  int run() { return GetParam().run(e.handle()); }
  element e;
};

TEST_P(Verdict, RefusesANullHandle) {
  EXPECT_EQ(GetParam().run(nullptr), ZOT_ERR_NULL_INPUT);
}

TEST_P(Verdict, NeedsAGetFirst) {
  EXPECT_EQ(run(), ZOT_ERR_NOT_READY);
  EXPECT_EQ(e.error_text(), GetParam().not_ready_text);
}

TEST_P(Verdict, DoesNothingForTheSameK) {
  e.handle()->stat.state = ZOT_CYCLE_SAME_K;
  EXPECT_EQ(run(), ZOT_NO_UPDATE);
  EXPECT_EQ(e.error_text(), GetParam().same_k_text);
}

TEST_P(Verdict, DoesNothingAfterACommit) {
  e.handle()->stat.state = ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_COMMIT;
  EXPECT_EQ(run(), ZOT_OK);
  EXPECT_EQ(e.error_text(), already_done);
}

TEST_P(Verdict, DoesNothingAfterARollBack) {
  e.handle()->stat.state = ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_ROLL_BACK;
  EXPECT_EQ(run(), ZOT_OK);
  EXPECT_EQ(e.error_text(), already_done);
}

TEST_P(Verdict, AsksForTheDoneBitsBeforeTheSameK) {
  e.handle()->stat.state = ZOT_CYCLE_SAME_K | ZOT_CYCLE_DONE_COMMIT;
  EXPECT_EQ(run(), ZOT_OK);
}

TEST_P(Verdict, DoesNothingInDevMode) {
  e.handle()->dev_mode = 1;
  EXPECT_EQ(run(), ZOT_OK);
  EXPECT_EQ(state_of(e), 0U);
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_INFO, k_file_topics,
                               GetParam().run == zot_priv_commit_conf ? commit : roll_back,
                               GetParam().dev_mode_line}));
}

TEST_P(Verdict, AnswersForDevModeBeforeTheDoneBits) {
  e.handle()->dev_mode = 1;
  e.handle()->stat.state = ZOT_CYCLE_DONE_COMMIT;
  run();
  EXPECT_EQ(e.error_text(), "Success");
}

INSTANTIATE_TEST_SUITE_P(
    Gate, Verdict,
    testing::Values(verdict{"Commit", zot_priv_commit_conf, "Is dev mode, do not commit conf.\n",
                            "It got same K. Do nothing for zot_priv_commit_conf().\n",
                            "Should run zot_conf_get() before doing zot_priv_commit_conf()\n."},
                    verdict{"RollBack", zot_priv_commit_fail_k,
                            "Is dev mode, do not commit corrupted K\n",
                            "It got same K. Do nothing for roll-back\n.",
                            "Should run zot_conf_get() before doing roll-back\n."}),
    [](const auto &instance) { return std::string(instance.param.name); });

TEST(DoneMarks, TakeEachOthersPlace) {
  element e;
  e.handle()->stat.state = ZOT_CYCLE_NEW_CONF;
  zot_done_roll_back(e.handle());
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_ROLL_BACK);
  zot_done_commit(e.handle());
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_COMMIT);
  zot_done_roll_back(e.handle());
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_ROLL_BACK);
}

TEST(DoneMarks, AreLogged) {
  element e;
  zot_done_commit(e.handle());
  zot_done_roll_back(e.handle());
  EXPECT_TRUE(logged_in_order(
      e.log(),
      {{ZOT_LOG_INFO, k_topics, "zot_done_commit", "Commit configuration: Done\n"},
       {ZOT_LOG_INFO, k_topics, "zot_done_roll_back", "Commit corrupted K files: Done\n"}}));
}

TEST(DoneMarks, TakeANullHandle) {
  zot_done_commit(nullptr);
  zot_done_roll_back(nullptr);
  SUCCEED();
}

}  // namespace
