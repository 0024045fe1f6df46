// SPDX-License-Identifier: Apache-2.0
// The configuration in force stays in force, whatever fails, is interrupted or is called in another
// order.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "cycle_checks.hpp"
#include "tests/support/service.hpp"
#include "zot_priv/model/owners.hpp"

namespace {
using namespace zot::test;

namespace fs = std::filesystem;
using texts = std::vector<std::string>;

constexpr std::uint32_t cached = ZOT_STAT_CACHED;

class InForce : public testing::Test {
 protected:
  returned_list get_of(const publication &published) {
    remote.publish(published);
    return e.get();
  }
  void bring_to(const publication &published) {
    ASSERT_EQ(get_of(published).status, ZOT_OK);
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  }
  void lose_scratch(const std::string &name) {
    fs::create_directories(away());
    fs::rename(e.tmp_root() + "/" + name, away() + "/" + name);
  }
  void bring_back_scratch(const std::string &name) {
    fs::rename(away() + "/" + name, e.tmp_root() + "/" + name);
  }
  // A new process without a service.
  void restart_alone() {
    e.set_port(closed_port());
    e.restart();
  }
  void expect_whole(const returned_list &got, const publication &published) {
    ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
    std::map<std::string, std::string> bytes;
    for (const auto &[path, content] : published.files()) {
      bytes.emplace(path.substr(0, path.rfind('/')), content);
    }
    std::map<std::string, std::string> found;
    for (const returned_entry &entry : got.entries) {
      if (entry.stat != ZOT_STAT_DELETED) {
        found.emplace("/" + std::string(zot_util_cat2str(entry.category)) + "/" + entry.key,
                      entry.bytes);
      }
    }
    EXPECT_EQ(found, bytes);
  }
  void expect_no_undo() {
    for (const char *const name : {"undo", "undo.new", "undo.old"}) {
      EXPECT_FALSE(exists(e.conf_root() + name)) << name;
    }
  }
  [[nodiscard]] std::string away() const { return e.dir() / "away"; }

  service remote;
  element e{remote.port()};
};

class InForceAfterFailedCommit : public InForce {
 protected:
  // The files cannot be copied, so the commit fails after the old ones were moved away.
  void SetUp() override {
    bring_to(first_configuration());
    ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
    lose_scratch("config");
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
    remote.clear_requests();
  }
};

TEST_F(InForceAfterFailedCommit, ANewProcessWithoutAServiceHasTheConfigurationBefore) {
  restart_alone();
  expect_whole(e.get(cached), first_configuration());
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
  expect_no_undo();
}

TEST_F(InForceAfterFailedCommit, TheNextGetFinishesItAndDownloadsNothing) {
  bring_back_scratch("config");
  ASSERT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
  EXPECT_EQ(remote.request_count(".k"), 0U);
  EXPECT_EQ(remote.request_count("/tgz"), 0U);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  expect_no_undo();
}

TEST_F(InForceAfterFailedCommit, ACachedRequestFinishesItToo) {
  bring_back_scratch("config");
  expect_whole(e.get(cached), second_configuration());
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

TEST_F(InForceAfterFailedCommit, TheNextGetOffersItAnewWhenItCannotBeFinished) {
  expect_whole(e.get(), second_configuration());
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_LAST).k), first_configuration().k_text());
}

TEST_F(InForceAfterFailedCommit,
       AGetThatCannotFinishItNorReachTheServiceLeavesTheConfigurationBefore) {
  e.set_port(closed_port());
  EXPECT_EQ(e.get().status, ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_CURRENT).k), first_configuration().k_text());
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
  expect_whole(e.get(cached), first_configuration());
}

TEST_F(InForceAfterFailedCommit, ARollBackUndoesItInMemoryAndOnTheMedium) {
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_CURRENT).k), first_configuration().k_text());
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
  EXPECT_EQ(read_bytes(knowledge_of(e) + "/corrupted.k"), second_configuration().k_text());
  expect_no_undo();
  const returned_list again = e.get();
  EXPECT_EQ(again.status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(marks_of(again), (texts{"Wlan/guest=2", "Zone/hq=2", "Radio/r5=2"}));
}

TEST_F(InForceAfterFailedCommit, ANewProcessMayComeBetweenItAndTheSecondCall) {
  bring_back_scratch("config");
  const handle_owner other(zot_conf_init2("AP", "aabbccddeeff", 12));
  ASSERT_NE(other, nullptr);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  EXPECT_EQ(read_bytes(knowledge_of(e) + "/prev_subsys.k"), first_configuration().k_text());
  expect_no_undo();
}

TEST_F(InForce, AFirstCommitThatFailsLeavesNothing) {
  ASSERT_EQ(get_of(first_configuration()).status, ZOT_OK);
  lose_scratch("config");
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
  restart_alone();
  EXPECT_EQ(e.get(cached).status, ZOT_ERR_NO_CACHE);
  EXPECT_TRUE(contents(e.conf_root()).empty());
  EXPECT_FALSE(exists(e.conf_root() + "config"));
}

TEST_F(InForce, ADamagedFileLeavesNothingInForceAndReportsNothingDeleted) {
  bring_to(first_configuration());
  bring_to(second_configuration());
  write_bytes(e.conf_root() + "/config/Wlan/staff/1", "Staff one");
  restart_alone();
  const returned_list got = e.get(cached);
  EXPECT_EQ(got.status, ZOT_ERR_NO_CACHE);
  EXPECT_EQ(got.error_text, "No cached data now");
}

TEST_F(InForce, WhatWasFetchedWithoutAVerdictIsWithdrawnWhenTheOldOneIsPublishedAgain) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  const returned_list got = get_of(first_configuration());
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=2", "Zone/hq=2", "Radio/r5=2"}));
  expect_whole(got, first_configuration());
  expect_whole(e.get(ZOT_STAT_FULL), first_configuration());
}

TEST_F(InForce, WhatWasFetchedWithoutAVerdictIsWithdrawnWhenARefusedOneIsPublished) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(third_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  const returned_list got = get_of(third_configuration());
  EXPECT_EQ(got.status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=2", "Zone/hq=2", "Radio/r5=2"}));
}

TEST_F(InForce, ASecondRollBackInARowHandsOutNothingOfTheRefusedOne) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  ASSERT_EQ(get_of(third_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  expect_whole(e.get(cached), first_configuration());
  const returned_list got = e.get();
  EXPECT_EQ(got.status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=2", "Zone/hq=2", "Radio/r5=2"}));
}

// A damaged cache has its K, but no process has it in force.
TEST_F(InForce, WhatTheCacheHoldsDamagedMayBeRolledBack) {
  bring_to(first_configuration());
  flip_bit(e.conf_root() + "config/Wlan/guest/1");
  e.restart();
  ASSERT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(e.get().status, ZOT_ERR_SAME_AS_CORRUPTED);
}

TEST_F(InForce, ACommitAfterARollBackThatFailedHandsOutTheNewOne) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  fs::create_directories(knowledge_of(e) + "/corrupted.k/in-the-way");
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_GENERIC);
  expect_whole(e.get(cached), first_configuration());
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  expect_whole(e.get(cached), second_configuration());
  expect_whole(e.get(ZOT_STAT_FULL), second_configuration());
}

TEST_F(InForce, TheFirstConfigurationRolledBackLeavesNothing) {
  ASSERT_EQ(get_of(first_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(e.get(cached).status, ZOT_ERR_NO_CACHE);
  const returned_list got = e.get();
  EXPECT_EQ(got.status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_TRUE(got.has_list);
  EXPECT_TRUE(got.entries.empty());
}

TEST_F(InForce, ARefusedConfigurationReportsNothingDeletedAfterARestart) {
  ASSERT_EQ(get_of(first_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  install_last(e, second_configuration());
  e.restart();
  const returned_list got = e.get();
  EXPECT_EQ(got.status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_TRUE(got.entries.empty());
}

TEST_F(InForce, TheScratchFolderMayBeLostAfterACommit) {
  bring_to(first_configuration());
  bring_to(second_configuration());
  fs::remove_all(e.tmp_root());
  expect_whole(e.get(cached), second_configuration());
  fs::remove_all(e.tmp_root());
  expect_whole(e.get(ZOT_STAT_FULL), second_configuration());
  fs::remove_all(e.tmp_root());
  expect_whole(e.get(), second_configuration());
}

TEST_F(InForce, AFileThatTheScratchFolderLostIsMissedOnce) {
  bring_to(first_configuration());
  fs::remove_all(e.tmp_root() + "/config");
  ASSERT_EQ(e.get(cached).status, ZOT_OK);
  e.log().clear();
  ASSERT_EQ(e.get(cached).status, ZOT_OK);
  EXPECT_FALSE(e.log().contains_part("Empty content in"));
}

TEST_F(InForce, AFileThatTheScratchFolderLostLeavesNoTextOfAFailure) {
  bring_to(first_configuration());
  fs::remove_all(e.tmp_root() + "/config");
  const returned_list got = e.get();
  ASSERT_EQ(got.status, ZOT_OK);
  EXPECT_EQ(got.error_text, "Success");
}

// A file of the configuration in force is damaged everywhere. The published configuration restores
// it.
TEST_F(InForce, WhatIsDamagedEverywhereComesFromTheServiceAgain) {
  bring_to(first_configuration());
  fs::remove_all(e.tmp_root());
  flip_bit(e.conf_root() + "config/Wlan/guest/1");
  EXPECT_EQ(e.get().status, ZOT_ERR_CORRUPTED);
  expect_whole(e.get(), first_configuration());
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  restart_alone();
  expect_whole(e.get(cached), first_configuration());
}

TEST_F(InForce, WhatIsDamagedEverywhereIsLoadedAgainOnceItIsWhole) {
  bring_to(first_configuration());
  fs::remove_all(e.tmp_root());
  flip_bit(e.conf_root() + "config/Wlan/guest/1");
  EXPECT_EQ(e.get(cached).status, ZOT_ERR_CORRUPTED);
  flip_bit(e.conf_root() + "config/Wlan/guest/1");
  expect_whole(e.get(cached), first_configuration());
}

// Every get tries again, because the load may have failed for lack of descriptors.
TEST_F(InForce, WhatCouldNotBeLoadedAgainIsTriedByTheNextGet) {
  bring_to(first_configuration());
  fs::remove_all(e.tmp_root());
  flip_bit(e.conf_root() + "config/Wlan/guest/1");
  EXPECT_EQ(e.get(cached).status, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(e.get(cached).status, ZOT_ERR_NO_CACHE);
  flip_bit(e.conf_root() + "config/Wlan/guest/1");
  expect_whole(e.get(cached), first_configuration());
  EXPECT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(e.handle()->stat.state, static_cast<uint32_t>(ZOT_CYCLE_SAME_K));
}

TEST_F(InForce, WhatAGetCouldNotHandOutIsNotCommitted) {
  bring_to(first_configuration());
  remote.publish(second_configuration());
  zot_sub_fns &fns = e.handle()->fns;
  fns.download_gpb = [](zot_ctx *handle, zot_k *k, zot_list *gpbs) {
    const int status = ap_download_gpb(handle, k, gpbs);
    flip_bit(std::string(handle->tmp_gpb_root) + "/Wlan/staff/1");
    return status;
  };
  EXPECT_EQ(e.get().status, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_NOT_READY);
  fns.download_gpb = ap_download_gpb;
  expect_whole(e.get(), second_configuration());
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
}

TEST_F(InForce, AScratchFileThatWasAlteredIsNotCommitted) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  flip_bit(e.tmp_root() + "/config/Wlan/staff/1");
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(e.error_text(),
            "[zot_priv_commit_conf]: what the get fetched was changed in " + e.tmp_root());
  restart_alone();
  expect_whole(e.get(cached), first_configuration());
}

// A version may be written in more than one way.
TEST_F(InForce, AnotherSpellingOfAVersionIsReadFromWhereItLies) {
  bring_to(publication().put("Wlan", "guest", "0x10", "sixteen"));
  bring_to(publication().put("Wlan", "guest", "16", "sixteen"));
  const returned_list got = e.get(cached);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  EXPECT_EQ(got.entries.at(0).bytes, "sixteen");
}

TEST_F(InForce, AnAlteredScratchFileOfANewConfigurationIsNotHandedOut) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  write_bytes(e.tmp_root() + "/config/Wlan/staff/1", "Staff one");
  EXPECT_EQ(e.get(cached).status, ZOT_ERR_CORRUPTED);
}

TEST_F(InForce, ARefusedRootBetweenGetAndCommitChangesNoFolder) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  const std::string conf_root = e.conf_root();
  {
    const env_guard refused("ZOT_PREFIX_CONF_ROOT", e.dir() / "a b");
    EXPECT_EQ(e.get().status, ZOT_ERR_WRONG_INPUT);
  }
  EXPECT_EQ(e.handle()->conf_root, conf_root);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(conf_root, second_configuration()));
}

TEST_F(InForce, ARefusedScratchRootBetweenGetAndCommitChangesNoFolder) {
  ASSERT_EQ(get_of(first_configuration()).status, ZOT_OK);
  const std::string conf_root = e.conf_root();
  {
    const env_guard other("ZOT_PREFIX_CONF_ROOT", e.dir() / "other");
    const env_guard refused("ZOT_PREFIX_TMP_ROOT", e.dir() / "a b");
    EXPECT_EQ(e.get().status, ZOT_ERR_WRONG_INPUT);
  }
  EXPECT_EQ(e.handle()->conf_root, conf_root);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(conf_root, first_configuration()));
}

// Other folders apply at once, but not to the configuration that waits for its verdict.
class InForceWithOtherFolders : public InForce {
 protected:
  void SetUp() override {
    bring_to(first_configuration());
    ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
    other_.emplace("ZOT_PREFIX_CONF_ROOT", e.dir() / "other");
    static_cast<void>(e.get(0));
    ASSERT_EQ(e.handle()->conf_root, other_root());
  }
  [[nodiscard]] std::string other_root() const { return e.dir() / "other/writable/zot/"; }

  std::optional<env_guard> other_;
};

TEST_F(InForceWithOtherFolders, ACommitWorksOnThoseOfItsGet) {
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  EXPECT_TRUE(contents(other_root()).empty());
  EXPECT_EQ(e.handle()->conf_root, other_root());
}

TEST_F(InForceWithOtherFolders, ARollBackWorksOnThoseOfItsGet) {
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(exists(knowledge_of(e) + "/corrupted.k"));
  EXPECT_TRUE(contents(other_root()).empty());
}

TEST_F(InForceWithOtherFolders, ACachedGetHandsOutWhatWaits) {
  const env_guard scratch("ZOT_PREFIX_TMP_ROOT", e.dir() / "other-scratch");
  static_cast<void>(e.get(0));
  const returned_list got = e.get(cached);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  ASSERT_NE(got.find(ZOT_CAT_WLAN, "guest"), nullptr);
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest two");
  EXPECT_EQ(e.handle()->conf_root, other_root());
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

TEST_F(InForce, ACommitThatFindsNoRoomChangesNothing) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  write_bytes(e.tmp_root() + "/config/Vpn/huge/1", "");
  fs::resize_file(e.tmp_root() + "/config/Vpn/huge/1", INT32_MAX);
  for (unsigned each = 0; each < 100000; ++each) {  // more than any disk
    zot_gpb *const huge = zot_priv_gpb_new("/Vpn/huge/1", INT32_MAX, ZOT_CAT_VPN, "", "huge", 1);
    ASSERT_NE(huge, nullptr);
    list_add_tail(slot_of(e, ZOT_SLOT_TMP).gpbs, &huge->node);
  }
  const auto cache = contents(e.conf_root());
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
  EXPECT_TRUE(e.error_text().starts_with("[zot_priv_commit_conf]: no room in " + e.conf_root()))
      << e.error_text();
  EXPECT_EQ(contents(e.conf_root()), cache);
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_CURRENT).k), first_configuration().k_text());
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
}

// The next get uses the folders that the environment names at that time.
class InForceElsewhere : public InForce {
 protected:
  void SetUp() override {
    InForce::SetUp();
    bring_to(first_configuration());
    elsewhere_.emplace("ZOT_PREFIX_CONF_ROOT", e.dir() / "elsewhere");
  }
  [[nodiscard]] std::string root() const { return e.dir() / "elsewhere/writable/zot/"; }

  std::optional<env_guard> elsewhere_;
};

TEST_F(InForceElsewhere, NothingIsHandedOutThatIsNotThere) {
  EXPECT_EQ(e.get(ZOT_STAT_CACHED).status, ZOT_ERR_NO_CACHE);
}

TEST_F(InForceElsewhere, WhatIsPublishedIsNew) {
  EXPECT_EQ(marks_of(e.get(every_change)), (texts{"Wlan/guest=8", "Zone/hq=8", "Radio/r5=8"}));
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(is_in_force_on_disk(root(), first_configuration()));
}

TEST_F(InForceElsewhere, WhatIsThereIsHandedOut) {
  second_configuration().install_cache(root());
  const returned_list got = e.get(ZOT_STAT_CACHED);
  ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
  ASSERT_NE(got.find(ZOT_CAT_WLAN, "guest"), nullptr);
  EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest two");
}

}  // namespace
