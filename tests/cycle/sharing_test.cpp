// SPDX-License-Identifier: Apache-2.0
// Several handles and processes that share one cache and one scratch folder.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "cycle_checks.hpp"
#include "tests/support/media.hpp"
#include "tests/support/service.hpp"
#include "utilities/owner.hpp"
#include "zot_priv/storage/file_id.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {
using namespace zot::test;

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using texts = std::vector<std::string>;

constexpr std::uint32_t cached = ZOT_STAT_CACHED;

class Sharing : public testing::Test {
 protected:
  Sharing() : e(element_options{.port = remote.port(), .timeout = 1}), other_(make_other()) {}

  handle_owner make_other() {
    return handle_owner(zot_conf_init_args("AP", "aabbccddeeff", 12, e.parm()));
  }
  [[nodiscard]] zot_ctx *other() const { return other_.get(); }
  returned_list get_of(const publication &published) {
    remote.publish(published);
    return e.get();
  }
  void bring_to(const publication &published) {
    ASSERT_EQ(get_of(published).status, ZOT_OK);
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  }
  void fail_to_commit() {
    fs::rename(e.tmp_root() + "/config", e.tmp_root() + "/aside");
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
    fs::rename(e.tmp_root() + "/aside", e.tmp_root() + "/config");
  }
  void let_other_roll_back() {
    ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
    ASSERT_EQ(zot_conf_roll_back(other()), ZOT_OK);
  }
  void let_other_commit() {
    ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
    ASSERT_EQ(zot_conf_commit(other()), ZOT_OK);
  }
  // Uses a separate scratch folder, so that only the cache shows the commit.
  void let_other_commit_third() {
    const env_guard own_scratch("ZOT_PREFIX_TMP_ROOT", e.dir() / "other-scratch");
    remote.publish(third_configuration());
    let_other_commit();
  }
  void expect_third_in_force() {
    const returned_list got = e.get(cached);
    ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
    ASSERT_NE(got.find(ZOT_CAT_WLAN, "guest"), nullptr);
    EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest three");
    EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), third_configuration()));
  }
  // Holds the lock of a folder, like another process.
  static zot::descriptor lock(const std::string &folder) {
    zot::descriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(::flock(fd.get(), LOCK_EX | LOCK_NB), 0) << folder;
    return fd;
  }
  void expect_locked(const std::string &folder) {
    EXPECT_NE(e.error_text().find(folder + " is locked by another process"), std::string::npos)
        << e.error_text();
  }

  service remote;
  element e;
  handle_owner other_;
};

TEST_F(Sharing, AGetGivesUpWhenTheCacheStaysLocked) {
  const zot::descriptor held = lock(e.conf_root());
  EXPECT_EQ(e.get().status, ZOT_ERR_TIMEOUT);
  expect_locked(e.conf_root());
  EXPECT_EQ(e.get(cached).status, ZOT_ERR_TIMEOUT);
  expect_locked(e.conf_root());
  EXPECT_TRUE(remote.requests().empty());
}

TEST_F(Sharing, AGetGivesUpWhenTheScratchFolderStaysLocked) {
  const zot::descriptor held = lock(e.tmp_root());
  EXPECT_EQ(e.get().status, ZOT_ERR_TIMEOUT);
  expect_locked(e.tmp_root());
  EXPECT_TRUE(remote.requests().empty());
}

TEST_F(Sharing, ACommitGivesUpWhenTheCacheStaysLockedAndCanBeCalledAgain) {
  ASSERT_EQ(get_of(first_configuration()).status, ZOT_OK);
  {
    const zot::descriptor held = lock(e.conf_root());
    EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_TIMEOUT);
    expect_locked(e.conf_root());
    EXPECT_TRUE(contents(e.conf_root()).empty());
  }
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
}

TEST_F(Sharing, ARollBackGivesUpWhenTheCacheStaysLocked) {
  ASSERT_EQ(get_of(first_configuration()).status, ZOT_OK);
  const zot::descriptor held = lock(e.conf_root());
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_TIMEOUT);
  expect_locked(e.conf_root());
}

TEST_F(Sharing, MetadataIsNotReadFromACacheThatStaysLocked) {
  const zot::descriptor held = lock(e.conf_root());
  zot_k_meta meta{};
  EXPECT_EQ(zot_util_get_k_meta(e.handle(), &meta, ZOT_K_CURRENT), ZOT_ERR_TIMEOUT);
  expect_locked(e.conf_root());
}

TEST_F(Sharing, AGetWaitsForALockThatIsReleasedInTime) {
  remote.publish(first_configuration());
  zot::descriptor held = lock(e.conf_root());
  std::thread release([&held] {
    std::this_thread::sleep_for(200ms);
    held.close();
  });
  EXPECT_EQ(e.get().status, ZOT_OK);
  release.join();
}

TEST_F(Sharing, NothingIsLockedBetweenCalls) {
  ASSERT_EQ(get_of(first_configuration()).status, ZOT_OK);
  EXPECT_TRUE(lock(e.conf_root()).is_open());
  EXPECT_TRUE(lock(e.tmp_root()).is_open());
}

TEST_F(Sharing, OneFolderForBothIsRefused) {
  const env_guard same("ZOT_PREFIX_TMP_ROOT", e.dir() / "conf");
  fs::create_directories(e.dir() / "conf/tmp");
  fs::create_directory_symlink(e.dir() / "conf/writable/zot", e.dir() / "conf/tmp/zot");
  EXPECT_EQ(get_of(first_configuration()).status, ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(e.error_text(),
            "[zot_conf_get]: conf root and tmp root are the same: " + (e.dir() / "conf/tmp/zot"));
}

TEST_F(Sharing, ARefusedConfigurationIsAnsweredWithWhatTheOtherCommitted) {
  bring_to(first_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(get_of(third_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  remote.publish(second_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(zot_conf_commit(other()), ZOT_OK);
  remote.publish(third_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(other()), ZOT_OK);
  const returned_list got = e.get(ZOT_STAT_FULL);
  ASSERT_EQ(got.status, ZOT_ERR_SAME_AS_CORRUPTED) << got.error_text;
  ASSERT_NE(got.find(ZOT_CAT_WLAN, "guest"), nullptr);
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest two");
}

TEST_F(Sharing, WhatTheOtherRolledBackIsNotOffered) {
  bring_to(first_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(get_of(third_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  const returned_list got = get(other(), ZOT_STAT_FULL);
  ASSERT_EQ(got.status, ZOT_ERR_SAME_AS_CORRUPTED) << got.error_text;
  ASSERT_NE(got.find(ZOT_CAT_WLAN, "guest"), nullptr);
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest one");
}

TEST_F(Sharing, WhatTheOtherRolledBackIsNotCommitted) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  let_other_roll_back();
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(e.error_text(),
            "[zot_priv_commit_conf]: another process has decided otherwise in " + e.conf_root());
  EXPECT_EQ(e.get(ZOT_STAT_FULL).status, ZOT_ERR_SAME_AS_CORRUPTED);
}

TEST_F(Sharing, WhatTheOtherRolledBackIsNotHandedOutFromMemory) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  let_other_roll_back();
  const returned_list got = e.get(cached);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  ASSERT_NE(got.find(ZOT_CAT_WLAN, "guest"), nullptr);
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest one");
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_NOT_READY);
}

TEST_F(Sharing, WhatTheOtherRolledBackIsNotCommittedWhereItLiesDamaged) {
  bring_to(first_configuration());
  write_bytes(e.conf_root() + "config/Wlan/guest/1", "damaged");
  e.restart();
  ASSERT_EQ(get_of(first_configuration()).status, ZOT_OK);
  let_other_roll_back();
  EXPECT_EQ(e.get(cached).status, ZOT_ERR_NO_CACHE);
  EXPECT_EQ(get_of(first_configuration()).status, ZOT_ERR_SAME_AS_CORRUPTED);
}

// A file of the cache that cannot be read.
class SharingWithAnUnreadableFile : public Sharing {
 protected:
  void SetUp() override { bring_to(first_configuration()); }
  void hide(const std::string &name) {
    hidden_ = e.conf_root() + name;
    fs::rename(hidden_, hidden_ + ".aside");
    // A link to itself, which nobody can open.
    fs::create_symlink(hidden_, hidden_);
  }
  void show() {
    fs::remove(hidden_);
    fs::rename(hidden_ + ".aside", hidden_);
  }

 private:
  std::string hidden_;
};

TEST_F(SharingWithAnUnreadableFile, ACommitTakesNoRefusalForNone) {
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  let_other_roll_back();
  hide("knowledge/corrupted.checksum");
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
  show();
  EXPECT_EQ(e.get().status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(SharingWithAnUnreadableFile, WhatAGetTookForNewIsNotCommitted) {
  remote.publish(second_configuration());
  let_other_roll_back();
  for (const char *const name : {"knowledge/corrupted.checksum", "knowledge/corrupted.k"}) {
    SCOPED_TRACE(name);
    const handle_owner anew = make_other();
    hide(name);
    ASSERT_EQ(get(anew.get(), every_change).status, ZOT_OK);
    show();
    EXPECT_EQ(zot_conf_commit(anew.get()), ZOT_ERR_CORRUPTED);
    EXPECT_EQ(get(anew.get(), every_change).status, ZOT_ERR_SAME_AS_CORRUPTED);
  }
}

// The checksum file alone does not mark a K as rolled back.
TEST_F(SharingWithAnUnreadableFile, WhatHasLostItsRefusedKIsCommitted) {
  remote.publish(second_configuration());
  let_other_roll_back();
  fs::remove(e.conf_root() + "knowledge/corrupted.k");
  ASSERT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

TEST_F(SharingWithAnUnreadableFile, ARollBackDoesNotTakeWhatIsInForceForAnother) {
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  let_other_commit();
  const std::string text = "[zot_priv_commit_fail_k]: fail to read " + e.conf_root() + ": ";
  for (const std::string name :
       {"knowledge/subsys.checksum", "knowledge/subsys.k", "config/Wlan/guest/2"}) {
    SCOPED_TRACE(name);
    hide(name);
    EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_GENERIC);
    EXPECT_TRUE(e.error_text().starts_with(text)) << e.error_text();
    EXPECT_FALSE(fs::exists(knowledge_of(e) + "/corrupted.checksum"));
    show();
  }
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

// It was committed before this process's get.
TEST_F(SharingWithAnUnreadableFile, ARollBackDoesNotTakeWhatWasInForceBeforeItsGet) {
  remote.publish(second_configuration());
  let_other_commit();
  ASSERT_EQ(e.get().status, ZOT_OK);
  hide("knowledge/subsys.k");
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_GENERIC);
  EXPECT_FALSE(fs::exists(knowledge_of(e) + "/corrupted.checksum"));
  show();
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_CORRUPTED);
}

TEST_F(SharingWithAnUnreadableFile, ARollBackGoesOnWithoutAnotherVerdict) {
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  hide("knowledge/subsys.k");
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK) << e.error_text();
  show();
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(SharingWithAnUnreadableFile, ARollBackGoesOnWhereFilesOfTheOtherAreMissing) {
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  let_other_commit();
  fs::remove_all(e.conf_root() + "config");
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK) << e.error_text();
}

// The persistent directory remembers only one rolled-back K, and the next commit removes it.
TEST_F(Sharing, WhatTheOtherRolledBackIsNotCommittedOverWhatCameAfter) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  {
    const env_guard own_scratch("ZOT_PREFIX_TMP_ROOT", e.dir() / "other-scratch");
    let_other_roll_back();
  }
  let_other_commit_third();
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
  expect_third_in_force();
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_NOT_READY);
}

// The other process has rolled back something else since, and that stays rolled back.
TEST_F(Sharing, WhatTheOtherCommittedIsNotBroughtOnceMore) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  {
    const env_guard own_scratch("ZOT_PREFIX_TMP_ROOT", e.dir() / "other-scratch");
    let_other_commit();
    remote.publish(third_configuration());
    ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
    ASSERT_EQ(zot_conf_roll_back(other()), ZOT_OK);
  }
  const auto cache = contents(e.conf_root());
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(contents(e.conf_root()), cache);
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_CURRENT).k), second_configuration().k_text());
  EXPECT_EQ(e.get().status, ZOT_ERR_SAME_AS_CORRUPTED);
}

// The other process may have been killed before that.
TEST_F(Sharing, WhatTheOtherCommittedIsOnTheMediumWhenACommitSaysSo) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  let_other_commit();
  media().failing_call = 1;
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
  media().synchronised.clear();
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_FALSE(media().synchronised.empty());
}

// The handle has not seen this configuration yet, so for it this is a change.
TEST_F(Sharing, WhatTheOtherCommittedIsNewAfterARefusedCommit) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  let_other_commit_third();
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
  const returned_list got = e.get(every_change);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  ASSERT_NE(got.find(ZOT_CAT_WLAN, "guest"), nullptr);
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest three");
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->stat, std::uint32_t{ZOT_STAT_MODIFIED});
}

TEST_F(Sharing, MetadataAreNotOfWhatTheOtherRefused) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  zot_k_meta meta{};
  EXPECT_EQ(zot_util_get_k_meta(e.handle(), &meta, ZOT_K_NEW), ZOT_OK);
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(other()), ZOT_OK);
  EXPECT_EQ(zot_util_get_k_meta(e.handle(), &meta, ZOT_K_NEW), ZOT_ERR_NOT_READY);
  let_other_commit_third();
  ASSERT_EQ(zot_util_get_k_meta(e.handle(), &meta, ZOT_K_CURRENT), ZOT_OK);
  zot_k_meta of_other{};
  ASSERT_EQ(zot_util_get_k_meta(other(), &of_other, ZOT_K_CURRENT), ZOT_OK);
  EXPECT_STREQ(meta.config_id, of_other.config_id);
}

TEST_F(Sharing, MetadataAreOfWhatTheOtherCommittedToo) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  let_other_commit();
  zot_k_meta meta{};
  ASSERT_EQ(zot_util_get_k_meta(e.handle(), &meta, ZOT_K_CURRENT), ZOT_OK);
  zot_k_meta of_other{};
  ASSERT_EQ(zot_util_get_k_meta(other(), &of_other, ZOT_K_CURRENT), ZOT_OK);
  EXPECT_STREQ(meta.config_id, of_other.config_id);
}

// There a recreated checksum file may have the inode number and the time of the one before.
class SharingWhereTimesAreCoarse : public Sharing {
 protected:
  void SetUp() override {
    bring_to(first_configuration());
    ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
    remote.publish(first_configuration());
    ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
    ASSERT_EQ(read_bytes(e.tmp_root() + "/subsys.k"), first_configuration().k_text());
    e.handle()->own.fetched =
        zot::file_id_at(AT_FDCWD, (e.tmp_root() + "/subsys.checksum").c_str());
  }
  void TearDown() override {
    EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
    EXPECT_FALSE(fs::exists(knowledge_of(e) + "/corrupted.k"));
  }
};

TEST_F(SharingWhereTimesAreCoarse, ACommitNoticesTheGetOfTheOther) {
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
}

TEST_F(SharingWhereTimesAreCoarse, ARollBackNoticesTheGetOfTheOther) {
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_CORRUPTED);
}

// Nothing was in force before it.
TEST_F(Sharing, AFirstCommitThatFailedIsNotFinishedOverThatOfAnother) {
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  fail_to_commit();
  let_other_commit_third();
  expect_third_in_force();
}

TEST_F(Sharing, ARollBackThatCannotBeReadBackDelaysACommit) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  const std::string knowledge = e.conf_root() + "knowledge/";
  fs::copy_file(e.tmp_root() + "/subsys.k", knowledge + "corrupted.k");
  write_bytes(knowledge + "corrupted.checksum",
              read_bytes(e.tmp_root() + "/subsys.checksum").substr(0, 64) + " K");
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
}

TEST_F(Sharing, ACommitThatFailedIsNotFinishedOverThatOfAnother) {
  bring_to(first_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  fail_to_commit();
  let_other_commit_third();
  expect_third_in_force();
}

TEST_F(Sharing, AnEarlierRefusalGivesWayToThatOfTheOther) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  remote.publish(third_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(other()), ZOT_OK);
  EXPECT_EQ(e.get().status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(get_of(second_configuration()).status, ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
}

TEST_F(Sharing, WhatTheOtherCommittedIsNoLongerRefused) {
  bring_to(first_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  remote.publish(third_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(zot_conf_commit(other()), ZOT_OK);
  remote.publish(second_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(zot_conf_commit(other()), ZOT_OK);
  const returned_list got = e.get(ZOT_STAT_FULL);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  ASSERT_NE(got.find(ZOT_CAT_WLAN, "guest"), nullptr);
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest two");
}

TEST_F(Sharing, WhatTheOtherCommittedCannotBeRolledBack) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  ASSERT_EQ(zot_conf_commit(other()), ZOT_OK);
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(e.error_text(),
            "[zot_priv_commit_fail_k]: this is in force already in " + e.conf_root());
  EXPECT_FALSE(exists(knowledge_of(e) + "/corrupted.k"));
  EXPECT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
}

// A get that fails may remove files that another get has fetched.
TEST_F(Sharing, FilesThatAFailedGetOfAnotherTookAwayAreMissed) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  remote.answer("/tgz", 200, "no archive");
  remote.publish(third_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(Sharing, TwoHandlesOfAThreadDoNotWaitForEachOther) {
  ASSERT_EQ(get_of(first_configuration()).status, ZOT_OK);
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(zot_conf_commit(other()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(Sharing, AGetOfSomethingElseBetweenGetAndCommitIsNoticed) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  remote.publish(third_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  const auto cache = contents(e.conf_root());
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(e.error_text(),
            "[zot_priv_commit_conf]: what the get fetched was changed in " + e.tmp_root());
  EXPECT_EQ(contents(e.conf_root()), cache);
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(contents(e.conf_root()), cache);
  ASSERT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), third_configuration()));
}

TEST_F(Sharing, AScratchFileThatAnotherGetLeftDamagedIsNoticed) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  write_bytes(e.tmp_root() + "/config/Wlan/staff/1", "Staff one");
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(Sharing, EachHandleIsToldOfWhatTheOtherCommitted) {
  bring_to(first_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  bring_to(second_configuration());
  const returned_list got = get(other(), every_change);
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
  EXPECT_EQ(zot_conf_commit(other()), ZOT_OK);
}

TEST_F(Sharing, ACachedRequestFollowsWhatTheOtherCommitted) {
  bring_to(first_configuration());
  ASSERT_EQ(get(other(), cached).status, ZOT_OK);
  bring_to(second_configuration());
  const returned_list got = get(other(), cached);
  const returned_entry *const guest = got.find(ZOT_CAT_WLAN, "guest");
  ASSERT_NE(guest, nullptr);
  EXPECT_EQ(guest->bytes, "guest two");
}

// Neither this process nor a new one can load what is there instead.
TEST_F(Sharing, ADamagedCacheTakesNothingFromAProcessThatHasItInMemory) {
  bring_to(first_configuration());
  flip_bit(e.conf_root() + "knowledge/subsys.checksum");
  EXPECT_EQ(marks_of(get(e.handle(), cached)), (texts{"Wlan/guest=8", "Zone/hq=8", "Radio/r5=8"}));
  EXPECT_EQ(get(e.handle(), every_change).status, ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
  remote.answer(".checksum", 500, "");
  EXPECT_EQ(get(e.handle(), every_change).status, ZOT_ERR_GENERIC);
  EXPECT_EQ(get(e.handle(), cached).status, ZOT_OK);
}

TEST_F(Sharing, MetadataFollowWhatTheOtherCommitted) {
  bring_to(first_configuration());
  ASSERT_EQ(get(other(), cached).status, ZOT_OK);
  bring_to(second_configuration());
  zot_k_meta found{};
  zot_k_meta wanted{};
  ASSERT_EQ(zot_util_get_k_meta(other(), &found, ZOT_K_CURRENT), ZOT_OK);
  ASSERT_EQ(zot_util_get_k_meta(e.handle(), &wanted, ZOT_K_CURRENT), ZOT_OK);
  EXPECT_STREQ(found.config_id, wanted.config_id);
}

// The entries that a get returns stay valid until the next get.
TEST_F(Sharing, MetadataOfWhatTheOtherCommittedTakeNoEntryAway) {
  bring_to(first_configuration());
  zot_list *list = nullptr;
  ASSERT_EQ(zot_conf_get(other(), zot::test::every_category(), cached, &list), ZOT_OK);
  bring_to(second_configuration());
  zot_k_meta found{};
  ASSERT_EQ(zot_util_get_k_meta(other(), &found, ZOT_K_CURRENT), ZOT_OK);
  texts bytes;
  for (const returned_entry &entry : entries_of(list)) {
    bytes.push_back(entry.bytes);
  }
  EXPECT_NE(std::find(bytes.begin(), bytes.end(), "guest one"), bytes.end());
  zot_conf_free_ret_data(other(), &list);
}

TEST_F(Sharing, WhatIsPublishedAgainReplacesWhatTheOtherCommitted) {
  bring_to(first_configuration());
  ASSERT_EQ(get(other(), every_change).status, ZOT_OK);
  bring_to(second_configuration());
  remote.publish(first_configuration());
  const returned_list got = get(other(), every_change);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=16", "Wlan/staff=4", "Zone/hq=8", "Radio/r5=2"}));
  EXPECT_EQ(zot_conf_commit(other()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

// The K whose folder the list was read from is freed when another one is in force.
TEST_F(Sharing, AGetThatFailsAfterTheCacheHasChangedKeepsNoFolderOfAReleasedK) {
  bring_to(first_configuration());
  ASSERT_EQ(get(other(), cached).status, ZOT_OK);
  ASSERT_NE(other()->ret.root, other()->conf_root);
  bring_to(second_configuration());
  remote.publish(first_configuration());
  remote.answer(".k", 500, "");
  ASSERT_EQ(get(other(), every_change).status, ZOT_ERR_GENERIC);
  EXPECT_EQ(other()->ret.root, other()->conf_root);
}

// An element with its own cache but the same scratch folder recreates that folder during a call.
class SharingWithALostScratchFolder : public Sharing {
 protected:
  void replace_scratch_at(const std::string &message) {
    e.log().when(message, [this] {
      fs::remove_all(e.tmp_root());
      third_configuration().install_k(e.tmp_root(), "subsys.k", "subsys.checksum");
    });
  }
  void expect_changed(int status) {
    EXPECT_EQ(status, ZOT_ERR_CORRUPTED);
    EXPECT_NE(e.error_text().find("what the get fetched was changed in "), std::string::npos)
        << e.error_text();
  }
};

TEST_F(SharingWithALostScratchFolder, ARollBackDoesNotRefuseWhatItFoundThere) {
  bring_to(third_configuration());
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  replace_scratch_at("Remove last K: Done\n");
  expect_changed(zot_conf_roll_back(e.handle()));
  EXPECT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(e.get().status, ZOT_ERR_SAME_AS_CORRUPTED);
}

TEST_F(SharingWithALostScratchFolder, AGetDoesNotTakeWhatItFoundThere) {
  bring_to(first_configuration());
  remote.publish(second_configuration());
  replace_scratch_at("Update temporary GPB: Done\n");
  expect_changed(e.get().status);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_NOT_READY);
  bring_to(second_configuration());
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

TEST_F(SharingWithALostScratchFolder, AGetWithoutAnUpdateDoesNotKeepWhatItFoundThere) {
  bring_to(first_configuration());
  bring_to(second_configuration());
  replace_scratch_at("No update on K; do rotate last K\n");
  expect_changed(e.get().status);
  EXPECT_FALSE(exists(knowledge_of(e) + "/prev_subsys.k"));
  EXPECT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(read_bytes(knowledge_of(e) + "/prev_subsys.k"), second_configuration().k_text());
}

// A commit in a separate process, with a `cp` that runs a script before it copies.
class SharingWithACommit : public Sharing {
 protected:
  void SetUp() override {
    bring_to(first_configuration());
    remote.publish(second_configuration());
  }
  void replace_cp(const std::string &script) {
    const std::string program = e.dir() / "bin/cp";
    write_bytes(program, "#!/bin/sh\n" + script + "\nexec /bin/cp \"$@\"\n");
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
    path_.emplace("PATH", (e.dir() / "bin") + ":" + std::getenv("PATH"));
  }
  // The child's exit status says whether it committed. It uses its parent's port and folders.
  pid_t start_commit() {
    const pid_t child = ::fork();
    if (child != 0) {
      return child;
    }
    ::setenv("COMMITS", std::to_string(::getpid()).c_str(), 1);
    zot_ctx *const handle = zot_conf_init2("AP", "aabbccddeeff", 12);
    zot_list *list = nullptr;
    const bool is_committed =
        zot_conf_get(handle, every_category(), every_change, &list) == ZOT_OK &&
        zot_conf_commit(handle) == ZOT_OK;
    ::_exit(is_committed ? 0 : 1);
  }
  static int end_of(pid_t child) {
    int status = -1;
    ::waitpid(child, &status, 0);
    return status;
  }
  // Waits until the script of `cp` reports this step.
  void wait_for(const std::string &mark) {
    for (int tries = 0; tries < 1000 && !exists(e.dir() / mark); ++tries) {
      std::this_thread::sleep_for(10ms);
    }
    ASSERT_TRUE(exists(e.dir() / mark));
  }
  [[nodiscard]] std::string touch(const std::string &mark) const {
    return "touch " + (e.dir() / mark) + "\n";
  }

  std::optional<env_guard> path_;
};

TEST_F(SharingWithACommit, OneThatIsKilledIsUndoneByTheNextProcess) {
  replace_cp("kill -9 $COMMITS");
  const int status = end_of(start_commit());
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  path_.reset();
  e.set_port(closed_port());
  e.restart();
  const returned_list got = e.get(cached);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest one");
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "staff"), nullptr);
}

TEST_F(SharingWithACommit, OneThatGoesOnIsNotUndoneByACreation) {
  replace_cp(touch("begun") + "sleep 0.5");
  const pid_t child = start_commit();
  wait_for("begun");
  const handle_owner started = make_other();
  ASSERT_NE(started, nullptr);
  EXPECT_TRUE(exists(e.conf_root() + "undo"));
  EXPECT_EQ(end_of(child), 0);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

TEST_F(SharingWithACommit, OneThatGoesOnIsWaitedForByAGet) {
  replace_cp(touch("begun") + "sleep 0.3");
  const pid_t child = start_commit();
  wait_for("begun");
  const returned_list got = get(make_other().get(), cached);
  EXPECT_EQ(end_of(child), 0);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest two");
}

// The copy outlives the process that started it, and still writes.
TEST_F(SharingWithACommit, AnOrphanedCopyIsWaitedFor) {
  replace_cp(touch("begun") + "kill -9 $COMMITS\nsleep 0.4");
  ASSERT_TRUE(WIFSIGNALED(end_of(start_commit())));
  path_.reset();
  e.restart();
  ASSERT_EQ(e.get(cached).status, ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
  std::this_thread::sleep_for(600ms);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

// An element with its own cache but the same scratch folder has recreated that folder.
TEST_F(SharingWithACommit, AScratchFolderMadeAnewMeanwhileIsNotCommitted) {
  const std::string scratch = e.tmp_root();
  const std::string foreign = e.dir() / "foreign";
  replace_cp("/bin/cp -r " + scratch + " " + foreign + "\nfind " + foreign +
             "/config -type f -exec sed -i s/two/TWO/ {} +\nrm -rf " + scratch + "\nmv " + foreign +
             " " + scratch);
  EXPECT_EQ(WEXITSTATUS(end_of(start_commit())), 1);
  path_.reset();
  e.set_port(closed_port());
  e.restart();
  const returned_list got = e.get(cached);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

// Another get would remove what this one has unpacked so far.
TEST_F(SharingWithACommit, TheScratchFolderOfAGetIsLeftToIt) {
  const std::string program = e.dir() / "bin/tar";
  write_bytes(program, "#!/bin/sh\n" + touch("begun") + "sleep 0.3\nexec /bin/tar \"$@\"\n");
  ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  path_.emplace("PATH", (e.dir() / "bin") + ":" + std::getenv("PATH"));
  const pid_t child = start_commit();
  wait_for("begun");
  path_.reset();
  EXPECT_EQ(e.get().status, ZOT_OK) << e.error_text();
  EXPECT_EQ(end_of(child), 0);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

// Folders that other users may read but not write. At a moment of its choice, a process gives up
// writing to both folders and keeps reading them.
class SharingWithAReader : public Sharing {
 protected:
  void SetUp() override {
    bring_to(second_configuration());
    bring_to(first_configuration());
    set_permissions(0755, 0644);
  }
  void TearDown() override { set_permissions(0755, 0644); }
  void set_permissions(unsigned of_folders, unsigned of_files) {
    ASSERT_EQ(::chmod(e.dir().path().c_str(), 0755), 0);
    for (const auto &entry : fs::recursive_directory_iterator(e.dir().path())) {
      fs::permissions(entry.path(), fs::perms(entry.is_directory() ? of_folders : of_files));
    }
  }
  // Root becomes another user; any other user removes its own write permission.
  void become_reader() {
    if (::geteuid() != 0) {
      set_permissions(0555, 0444);
    } else if (::setresuid(65534, 65534, 65534) != 0) {
      ::_exit(2);
    }
  }
  static handle_owner new_handle() {
    return handle_owner(zot_conf_init2("AP", "aabbccddeeff", 12));
  }
  // Leaves what another process leaves if it is killed in its commit.
  void interrupt_commit() {
    ASSERT_TRUE(zot::begin_undo(*e.handle(), zot::gpb_protection::kept));
    for (const char *const name : {"subsys.k", "subsys.checksum"}) {
      fs::rename(knowledge_of(e) + "/" + name, knowledge_of(e) + "/prev_" + name);
    }
  }
  // No answer here comes from the service. Its threads end first, because a child of a process with
  // threads may be left with a lock that one of them held.
  template <class Body>
  void expect_in_child(Body body) {
    remote.stop();
    const pid_t child = ::fork();
    if (child == 0) {
      ::_exit(body() ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  static bool has_first(const returned_list &got) {
    return got.status == ZOT_OK &&
           marks_of(got) == texts{"Wlan/guest=16", "Wlan/staff=4", "Zone/hq=8", "Radio/r5=2"};
  }
};

TEST_F(SharingWithAReader, CachedRequestsAreAnswered) {
  expect_in_child([&] {
    become_reader();
    return has_first(get(new_handle().get(), cached));
  });
}

TEST_F(SharingWithAReader, AnInterruptedCommitOfAnotherLeavesWhatWasInForceAndWhatWasLast) {
  interrupt_commit();
  expect_in_child([&] {
    become_reader();
    return has_first(get(new_handle().get(), cached));
  });
}

TEST_F(SharingWithAReader, WhatItHasInMemoryIsFoundWhereAnInterruptedCommitKeepsIt) {
  fs::remove_all(e.tmp_root() + "/config");
  expect_in_child([&] {
    const handle_owner handle = new_handle();
    if (!has_first(get(handle.get(), cached))) {
      return false;
    }
    interrupt_commit();
    become_reader();
    return get(handle.get(), cached).entries.size() == 3;
  });
}

}  // namespace
