// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/media.hpp"
#include "verdict_fixture.hpp"
#include "zot_priv/storage/fetched.hpp"

namespace {
using namespace zot::test;

constexpr const char *commit = "zot_priv_commit_conf";
constexpr const char *start_of_k = "Start to commit K file into cached storage.\n";
constexpr const char *start_of_gpb = "Start to commit GPB files into cached storage.\n";
constexpr const char *start_of_memory = "Start to update current configuration in memory.\n";

class CommitConf : public WaitingForVerdict {};

TEST_F(CommitConf, MakesTheTemporaryConfigurationTheOneInForce) {
  ASSERT_EQ(run_commit(), ZOT_OK);
  EXPECT_EQ(text_of(slot(ZOT_SLOT_CURRENT).k), second_configuration().k_text());
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_COMMIT);
  EXPECT_EQ(e.error_text(), "Success");
}

TEST_F(CommitConf, KeepsTheConfigurationBeforeAsLast) {
  run_commit();
  EXPECT_EQ(text_of(slot(ZOT_SLOT_LAST).k), first_configuration().k_text());
  EXPECT_EQ(in_cache("knowledge/prev_subsys.k"), first_configuration().k_text());
  EXPECT_EQ(in_cache("knowledge/prev_subsys.checksum"), first_configuration().checksum_text());
}

TEST_F(CommitConf, LetsTheTemporarySlotShareTheCurrentOne) {
  run_commit();
  EXPECT_EQ(slot(ZOT_SLOT_TMP).k, slot(ZOT_SLOT_CURRENT).k);
  EXPECT_EQ(slot(ZOT_SLOT_TMP).gpbs, slot(ZOT_SLOT_CURRENT).gpbs);
}

TEST_F(CommitConf, LogsItsStepsInOrder) {
  run_commit();
  EXPECT_TRUE(logged_in_order(
      e.log(),
      {{ZOT_LOG_INFO, ZOT_TOPIC_K | ZOT_TOPIC_GPB, commit, "Start to commit configuration\n"},
       {ZOT_LOG_INFO, ZOT_TOPIC_K | ZOT_TOPIC_GPB, commit, start_of_memory},
       {ZOT_LOG_INFO, k_file_topics, commit, start_of_k},
       {ZOT_LOG_INFO, gpb_file_topics, commit, start_of_gpb},
       {ZOT_LOG_INFO, k_topics, "zot_done_commit", "Commit configuration: Done\n"}}));
}

// An adapter may have put its K in another directory.
TEST_F(CommitConf, TakesTheKFilesFromTheRootOfTheK) {
  const std::string root = e.dir() / "adapter";
  std::filesystem::create_directories(root);
  for (const char *const name : {"/subsys.k", "/subsys.checksum"}) {
    std::filesystem::rename(e.tmp_root() + name, root + name);
  }
  ASSERT_NE(zot_priv_k_set_root(slot(ZOT_SLOT_TMP).k, root.c_str()), nullptr);
  EXPECT_EQ(run_commit(), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

// A get without memory for the root goes on without it.
TEST_F(CommitConf, TakesTheKFilesOfAKWithoutARootFromTheScratchFolder) {
  zot_priv_k_set_root(slot(ZOT_SLOT_TMP).k, nullptr);
  EXPECT_EQ(run_commit(), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

TEST_F(CommitConf, ForgetsTheCorruptedK) {
  install_corrupted(e, third_configuration());
  ASSERT_TRUE(zot::remember_get(*e.handle()));
  e.handle()->load_flags &= ~static_cast<std::uint32_t>(ZOT_LOADED_FAIL_K);
  ASSERT_EQ(zot_priv_init_load_fail_k(e.handle()), ZOT_OK);
  ASSERT_EQ(run_commit(), ZOT_OK);
  EXPECT_EQ(slot(ZOT_SLOT_CORRUPTED).k, nullptr);
  EXPECT_FALSE(exists(knowledge_of(e) + "/corrupted.k"));
}

TEST_F(CommitConf, ChangesNothingTheSecondTime) {
  ASSERT_EQ(run_commit(), ZOT_OK);
  const auto cache = contents(e.conf_root());
  e.log().clear();
  EXPECT_EQ(run_commit(), ZOT_OK);
  EXPECT_EQ(e.error_text(), already_done);
  EXPECT_EQ(contents(e.conf_root()), cache);
  EXPECT_FALSE(e.log().contains("Start to commit configuration\n"));
}

TEST_F(CommitConf, LeavesNothingForARollBack) {
  ASSERT_EQ(run_commit(), ZOT_OK);
  const auto cache = contents(e.conf_root());
  EXPECT_EQ(run_roll_back(), ZOT_OK);
  EXPECT_EQ(contents(e.conf_root()), cache);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_COMMIT);
}

// The rollback has marked the configuration that was in force then.
TEST_F(CommitConf, AnswersCachedRequestsFromTheNewConfigurationThoughARollBackFailedBefore) {
  remote.publish(first_configuration().put("Wlan", "staff", 1, "staff one"));
  ASSERT_EQ(e.get().status, ZOT_OK);
  const std::string k = e.tmp_root() + "/subsys.k";
  const std::string bytes = read_bytes(k);
  std::filesystem::remove(k);
  ASSERT_EQ(run_roll_back(), ZOT_ERR_GENERIC);
  write_bytes(k, bytes);
  ASSERT_EQ(run_commit(), ZOT_OK) << e.error_text();
  const returned_list cached = e.get(ZOT_STAT_CACHED);
  EXPECT_EQ(cached.status, ZOT_OK) << cached.error_text;
  EXPECT_EQ(marks_of(cached),
            (std::vector<std::string>{"Wlan/guest=2", "Wlan/staff=2", "Zone/hq=2", "Radio/r5=2"}));
}

TEST_F(CommitConf, SaysThatTheSameKWasGot) {
  run_commit();
  ASSERT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(run_commit(), ZOT_NO_UPDATE);
  EXPECT_EQ(e.error_text(), "It got same K. Do nothing for zot_priv_commit_conf().\n");
}

TEST_F(CommitConf, RefusesATemporarySlotThatHoldsTheConfigurationInForce) {
  remote.publish(first_configuration());
  ASSERT_EQ(e.get().status, ZOT_OK);
  e.handle()->stat.state = ZOT_CYCLE_NEW_CONF;
  EXPECT_EQ(run_commit(), ZOT_NO_UPDATE);
  EXPECT_EQ(e.error_text(), "Configuration not changed. It doesn't need to do commit.");
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
}

TEST(CommitConfAlone, NeedsATemporaryConfiguration) {
  element e;
  e.handle()->stat.state = ZOT_CYCLE_NEW_CONF;
  EXPECT_EQ(zot_priv_commit_conf(e.handle()), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(e.error_text(), "No temporary configuration to commit");
  EXPECT_TRUE(logged(
      e.log(), {ZOT_LOG_DEBUG, ZOT_TOPIC_K | ZOT_TOPIC_GPB, commit, "k = (nil), gpb = (nil)\n"}));
}

TEST_F(CommitConf, NeedsATemporaryList) {
  zot_priv_free_gpb_ex_safe(e.handle(), ZOT_SLOT_TMP, nullptr);
  EXPECT_EQ(run_commit(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(e.error_text(), "No temporary configuration to commit");
}

class CommitOfAPathThatClimbs : public WaitingForVerdict {
 protected:
  void SetUp() override {
    WaitingForVerdict::SetUp();
    write_bytes(e.tmp_root() + "/gpb.tgz", "a");
    list_add_tail(slot(ZOT_SLOT_TMP).gpbs,
                  &zot_priv_gpb_new("/Wlan/../../gpb.tgz", 1, ZOT_CAT_WLAN, "", "..", 1)->node);
  }
};

TEST_F(CommitOfAPathThatClimbs, IsRefusedBeforeAnythingChanges) {
  const auto cache = contents(e.conf_root());
  EXPECT_EQ(run_commit(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(e.error_text(), "[zot_priv_commit_conf]: a file of K lies outside of " + e.tmp_root() +
                                "//config: /Wlan/../../gpb.tgz");
  EXPECT_EQ(contents(e.conf_root()), cache);
  EXPECT_EQ(text_of(slot(ZOT_SLOT_CURRENT).k), first_configuration().k_text());
}

TEST_F(CommitOfAPathThatClimbs, IsTheAffairOfAnAdapter) {
  e.handle()->fns.commit_gpb = [](zot_ctx *, const char *, zot_list *) -> int { return ZOT_OK; };
  EXPECT_EQ(run_commit(), ZOT_OK) << e.error_text();
}

// Something disappears from the scratch directory and comes back before the second attempt.
class FailedCommit : public WaitingForVerdict {
 protected:
  void SetUp() override {
    WaitingForVerdict::SetUp();
    std::filesystem::copy(e.tmp_root(), saved(), std::filesystem::copy_options::recursive);
  }
  void lose(const std::string &name) { std::filesystem::remove_all(e.tmp_root() + "/" + name); }
  void bring_back() {
    std::filesystem::copy(saved(), e.tmp_root(),
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
  }
  [[nodiscard]] std::string saved() const { return e.dir() / "saved"; }
};

TEST_F(FailedCommit, OfTheKSaysWhatFailedAndIsNotDone) {
  lose("subsys.k");
  EXPECT_EQ(run_commit(), ZOT_ERR_GENERIC);
  EXPECT_TRUE(e.error_text().starts_with("fail to cp ")) << e.error_text();
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
  EXPECT_FALSE(e.log().contains(start_of_gpb));
}

TEST_F(FailedCommit, KeepsWhatMemoryAlreadyHolds) {
  lose("subsys.k");
  run_commit();
  EXPECT_EQ(text_of(slot(ZOT_SLOT_CURRENT).k), second_configuration().k_text());
  EXPECT_EQ(text_of(slot(ZOT_SLOT_LAST).k), first_configuration().k_text());
}

TEST_F(FailedCommit, OfTheKGoesOnAtTheKFiles) {
  lose("subsys.k");
  run_commit();
  bring_back();
  e.log().clear();
  EXPECT_EQ(run_commit(), ZOT_OK);
  EXPECT_FALSE(e.log().contains(start_of_memory));
  EXPECT_TRUE(e.log().contains(start_of_k));
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_COMMIT);
}

TEST_F(FailedCommit, OfTheChecksumGoesOnAtTheKFiles) {
  lose("subsys.checksum");
  ASSERT_EQ(run_commit(), ZOT_ERR_GENERIC);
  bring_back();
  EXPECT_EQ(run_commit(), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

TEST_F(FailedCommit, KeepsTheLastKWhenItGoesOnAfterTheCopyOfTheK) {
  lose("subsys.k");
  ASSERT_EQ(run_commit(), ZOT_ERR_GENERIC);
  ASSERT_EQ(run_commit(), ZOT_ERR_GENERIC);
  bring_back();
  ASSERT_EQ(run_commit(), ZOT_OK);
  EXPECT_EQ(in_cache("knowledge/prev_subsys.k"), first_configuration().k_text());
  EXPECT_EQ(in_cache("knowledge/prev_subsys.checksum"), first_configuration().checksum_text());
}

TEST_F(FailedCommit, KeepsTheLastKWhenItGoesOnAfterTheCopyOfTheChecksum) {
  lose("subsys.checksum");
  ASSERT_EQ(run_commit(), ZOT_ERR_GENERIC);
  bring_back();
  ASSERT_EQ(run_commit(), ZOT_OK);
  EXPECT_EQ(in_cache("knowledge/prev_subsys.k"), first_configuration().k_text());
  EXPECT_EQ(in_cache("knowledge/prev_subsys.checksum"), first_configuration().checksum_text());
}

TEST_F(FailedCommit, CanFailAgain) {
  lose("subsys.k");
  run_commit();
  EXPECT_EQ(run_commit(), ZOT_ERR_GENERIC);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
}

TEST_F(FailedCommit, OfTheGpbFilesSaysWhatFailed) {
  lose("config");
  EXPECT_EQ(run_commit(), ZOT_ERR_GENERIC);
  EXPECT_EQ(e.error_text(), "[zot_priv_commit_gpb]:fail to copy from " + e.tmp_root() +
                                "//config to " + e.conf_root() + "//config");
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
}

TEST_F(FailedCommit, OfTheGpbFilesBeginsAnewInTheCache) {
  lose("config");
  run_commit();
  bring_back();
  e.log().clear();
  EXPECT_EQ(run_commit(), ZOT_OK);
  EXPECT_FALSE(e.log().contains(start_of_memory));
  EXPECT_TRUE(e.log().contains(start_of_k));
  EXPECT_TRUE(e.log().contains(start_of_gpb));
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  EXPECT_EQ(in_cache("knowledge/prev_subsys.k"), first_configuration().k_text());
}

TEST_F(FailedCommit, IsForgottenByTheNextCheck) {
  lose("subsys.k");
  run_commit();
  static_cast<void>(e.get());
  EXPECT_EQ(e.handle()->own.commit_begun, 0U);
}

// The old files are on the medium. The new ones are not, because the medium has reported an error.
class UnsyncedCommit : public WaitingForVerdict {
 protected:
  void SetUp() override {
    WaitingForVerdict::SetUp();
    media().failing_call = 2;
    ASSERT_EQ(run_commit(), ZOT_ERR_GENERIC);
  }
};

TEST_F(UnsyncedCommit, IsNotDone) {
  EXPECT_EQ(e.error_text(),
            "[zot_priv_commit_conf]: fail to sync " + e.conf_root() + ": Input/output error");
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
  EXPECT_TRUE(exists(e.conf_root() + "undo/config"));
}

// An error of the medium is reported only once, and what could not be written is lost.
TEST_F(UnsyncedCommit, CopiesEverythingAgain) {
  for (const char *const lost : {"knowledge/subsys.k", "config/Wlan/guest/2"}) {
    const std::string path = e.conf_root() + lost;
    write_bytes(path, std::string(read_bytes(path).size(), '\0'));
  }
  EXPECT_EQ(run_commit(), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  EXPECT_EQ(in_cache("knowledge/prev_subsys.k"), first_configuration().k_text());
}

}  // namespace
