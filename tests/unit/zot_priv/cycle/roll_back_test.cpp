// SPDX-License-Identifier: Apache-2.0
// The checks that commit and rollback share are tested in verdict_test.cpp.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "gpb_entries.hpp"
#include "tests/support/media.hpp"
#include "verdict_fixture.hpp"

namespace {
using namespace zot::test;

using texts = std::vector<std::string>;

constexpr const char *roll_back = "zot_priv_commit_fail_k";

class RollBack : public WaitingForVerdict {
 protected:
  // Installs a last configuration, as two earlier commits leave it.
  void have_last() {
    install_last(e, third_configuration());
    e.handle()->load_flags &= ~static_cast<std::uint32_t>(ZOT_LOADED_PREV_K);
  }
  void forget_the_load_of_the_corrupted_k() {
    e.handle()->load_flags &= ~static_cast<std::uint32_t>(ZOT_LOADED_FAIL_K);
  }
};

TEST_F(RollBack, KeepsTheRejectedKAsCorrupted) {
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(in_cache("knowledge/corrupted.k"), second_configuration().k_text());
  EXPECT_EQ(in_cache("knowledge/corrupted.checksum"), second_configuration().checksum_text());
  const zot_k *const corrupted = slot(ZOT_SLOT_CORRUPTED).k;
  EXPECT_EQ(text_of(corrupted), second_configuration().k_text());
  EXPECT_STREQ(corrupted->root, e.conf_root().c_str());
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_ROLL_BACK);
}

TEST_F(RollBack, KeepsTheConfigurationInForce) {
  const zot_slot before = slot(ZOT_SLOT_CURRENT);
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(slot(ZOT_SLOT_CURRENT).k, before.k);
  EXPECT_EQ(slot(ZOT_SLOT_CURRENT).gpbs, before.gpbs);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(RollBack, LeavesTheTemporaryConfigurationAlone) {
  const zot_slot before = slot(ZOT_SLOT_TMP);
  const auto scratch = contents(e.tmp_root());
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(slot(ZOT_SLOT_TMP).k, before.k);
  EXPECT_EQ(slot(ZOT_SLOT_TMP).gpbs, before.gpbs);
  EXPECT_EQ(contents(e.tmp_root()), scratch);
}

TEST_F(RollBack, LogsItsStepsInOrder) {
  have_last();
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  const std::string k_path = e.conf_root() + "//knowledge/prev_subsys.k";
  const std::string checksum_path = e.conf_root() + "//knowledge/prev_subsys.checksum";
  EXPECT_TRUE(logged_in_order(
      e.log(),
      {{ZOT_LOG_INFO, k_file_topics, roll_back, "Remove last K: Done\n"},
       {ZOT_LOG_DEBUG, k_file_topics, roll_back, "Run CMD: rm -rf \"" + k_path + "\"\n"},
       {ZOT_LOG_INFO, k_file_topics, roll_back, "Remove last K.checksum: Done\n"},
       {ZOT_LOG_DEBUG, k_file_topics, roll_back, "Run CMD: rm -rf \"" + checksum_path + "\"\n"},
       {ZOT_LOG_INFO, ZOT_TOPIC_GPB, roll_back, "Renew returned GPB list: Done\n"},
       {ZOT_LOG_INFO, k_file_topics, roll_back,
        "Move new K from temporary storage to cached storage as corrupted K: Done\n"},
       {ZOT_LOG_INFO, k_file_topics, roll_back,
        "Move new K.checksum from temporary storage to cached storage as corrupted K.checksum: "
        "Done\n"},
       {ZOT_LOG_INFO, k_topics, "zot_done_roll_back", "Commit corrupted K files: Done\n"}}));
}

TEST_F(RollBack, LoadsTheLastKToForgetIt) {
  have_last();
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_TRUE(e.log().contains("Init. Load last K from cached storage: Done\n"));
  EXPECT_EQ(slot(ZOT_SLOT_LAST).k, nullptr);
  EXPECT_NE(slot(ZOT_SLOT_LAST).gpbs, nullptr);
  EXPECT_FALSE(exists(knowledge_of(e) + "/prev_subsys.k"));
  EXPECT_FALSE(exists(knowledge_of(e) + "/prev_subsys.checksum"));
}

TEST_F(RollBack, ReturnsTheConfigurationInForceAsUnchangedWhenALastKIsForgotten) {
  have_last();
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/1=2", "/Zone/hq/1=2", "/Radio/r5/3=2"}));
  EXPECT_EQ(e.handle()->ret.root, e.handle()->conf_root);
}

TEST_F(RollBack, RemovesNothingWithoutALastK) {
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_FALSE(e.log().contains("Remove last K: Done\n"));
  EXPECT_FALSE(e.log().contains("Renew returned GPB list: Done\n"));
}

TEST_F(RollBack, TriesTheLastKNotAgainWhenItsLoadHasRun) {
  install_last(e, third_configuration());
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_TRUE(exists(knowledge_of(e) + "/prev_subsys.k"));
}

TEST_F(RollBack, ReturnsTheConfigurationInForceAsUnchangedWithoutALastK) {
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/1=2", "/Zone/hq/1=2", "/Radio/r5/3=2"}));
  EXPECT_EQ(e.handle()->ret.root, e.handle()->conf_root);
}

TEST_F(RollBack, LeavesAnEmptyReturnedListWhenNothingIsInForce) {
  have_last();
  zot_priv_free_k_ex_safe(e.handle(), ZOT_SLOT_CURRENT, nullptr);
  EXPECT_EQ(run_roll_back(), ZOT_OK);
  ASSERT_NE(e.handle()->ret.list, nullptr);
  EXPECT_TRUE(zot_list_is_empty(e.handle()->ret.list));
}

TEST(RollBackAlone, NeedsATemporaryK) {
  element e;
  e.handle()->stat.state = ZOT_CYCLE_NEW_CONF;
  EXPECT_EQ(zot_priv_commit_fail_k(e.handle()), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(e.error_text(), "No update data\n");
}

TEST_F(RollBack, SaysThatNoCorruptedKIsSaved) {
  forget_the_load_of_the_corrupted_k();
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_INFO, k_file_topics, roll_back, "No saved corrupted K\n"}));
}

TEST_F(RollBack, WarnsAboutACorruptedKThatCannotBeRead) {
  forget_the_load_of_the_corrupted_k();
  write_bytes(knowledge_of(e) + "/corrupted.checksum", "no checksum\n");
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  const log_record *const warning = e.log().find_part("Unable to do load corrupted K: ");
  ASSERT_NE(warning, nullptr) << e.log().dump();
  EXPECT_EQ(warning->level, ZOT_LOG_WARN);
  EXPECT_EQ(warning->mask, k_file_topics);
}

TEST_F(RollBack, SaysNothingAboutACorruptedKThatWasLoaded) {
  forget_the_load_of_the_corrupted_k();
  install_corrupted(e, third_configuration());
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_FALSE(e.log().contains_part("load corrupted K: "));
  EXPECT_FALSE(e.log().contains("No saved corrupted K\n"));
}

TEST_F(RollBack, ReplacesAnEarlierCorruptedK) {
  forget_the_load_of_the_corrupted_k();
  install_corrupted(e, third_configuration());
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(in_cache("knowledge/corrupted.k"), second_configuration().k_text());
  EXPECT_EQ(text_of(slot(ZOT_SLOT_CORRUPTED).k), second_configuration().k_text());
}

TEST_F(RollBack, LeavesTheFilesOfTheSameCorruptedKAlone) {
  forget_the_load_of_the_corrupted_k();
  install_corrupted(e, second_configuration());
  ASSERT_EQ(zot_priv_init_load_fail_k(e.handle()), ZOT_OK);
  write_bytes(knowledge_of(e) + "/corrupted.k", "marker");
  EXPECT_EQ(run_roll_back(), ZOT_NO_UPDATE);
  EXPECT_EQ(e.error_text(), "New configuration is still corrupted.It doesn't need to do anything.");
  EXPECT_EQ(in_cache("knowledge/corrupted.k"), "marker");
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
}

TEST_F(RollBack, KnowsTheTemporaryKItselfAsTheCorruptedOne) {
  zot_priv_set_k(e.handle(), ZOT_SLOT_CORRUPTED, slot(ZOT_SLOT_TMP).k);
  EXPECT_EQ(run_roll_back(), ZOT_NO_UPDATE);
}

TEST_F(RollBack, FailsWithoutTheFetchedK) {
  std::filesystem::remove(e.tmp_root() + "/subsys.k");
  EXPECT_EQ(run_roll_back(), ZOT_ERR_GENERIC);
  EXPECT_TRUE(e.error_text().starts_with("fail to cp ")) << e.error_text();
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
  EXPECT_FALSE(exists(knowledge_of(e) + "/corrupted.checksum"));
}

TEST_F(RollBack, KeepsWhatWasCopiedWhenTheChecksumFails) {
  std::filesystem::remove(e.tmp_root() + "/subsys.checksum");
  EXPECT_EQ(run_roll_back(), ZOT_ERR_GENERIC);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
  EXPECT_EQ(in_cache("knowledge/corrupted.k"), second_configuration().k_text());
}

TEST_F(RollBack, CanBeRepeatedAfterAFailure) {
  std::filesystem::remove(e.tmp_root() + "/subsys.checksum");
  ASSERT_EQ(run_roll_back(), ZOT_ERR_GENERIC);
  write_bytes(e.tmp_root() + "/subsys.checksum", second_configuration().checksum_text());
  EXPECT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_ROLL_BACK);
}

TEST_F(RollBack, FailsWhenTheCopyIsNotWhatItsChecksumSays) {
  write_bytes(e.tmp_root() + "/subsys.checksum", third_configuration().checksum_text());
  EXPECT_EQ(run_roll_back(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(slot(ZOT_SLOT_CORRUPTED).k, nullptr);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
}

TEST_F(RollBack, IsOnTheMediumWhenItIsDone) {
  media().synchronised.clear();
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(media().synchronised.size(), 1U);
}

TEST_F(RollBack, IsNotDoneWhenTheMediumFails) {
  media().failing_call = 1;
  EXPECT_EQ(run_roll_back(), ZOT_ERR_GENERIC);
  EXPECT_EQ(e.error_text(), std::string("[") + roll_back + "]: fail to sync " + e.conf_root() +
                                ": Input/output error");
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
  EXPECT_EQ(run_roll_back(), ZOT_OK);
}

TEST_F(RollBack, ChangesNothingTheSecondTime) {
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  const auto cache = contents(e.conf_root());
  EXPECT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(e.error_text(), already_done);
  EXPECT_EQ(contents(e.conf_root()), cache);
}

TEST_F(RollBack, LeavesNothingForACommit) {
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(run_commit(), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(RollBack, LetsTheNextCheckKnowTheSameK) {
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(zot_priv_chk_update(e.handle()), ZOT_ERR_SAME_AS_CORRUPTED);
}

}  // namespace
