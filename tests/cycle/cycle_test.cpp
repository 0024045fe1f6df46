// SPDX-License-Identifier: Apache-2.0
// Complete cycles of an element, over HTTP and in dev mode.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "cycle_checks.hpp"
#include "tests/support/service.hpp"

namespace {
using namespace zot::test;

using texts = std::vector<std::string>;

class WholeCycle : public testing::Test {
 protected:
  returned_list get_of(const publication &published) {
    remote.publish(published);
    return e.get();
  }
  // Commits a first configuration on an empty element.
  void bring_to(const publication &published) {
    ASSERT_EQ(get_of(published).status, ZOT_OK);
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  }
  [[nodiscard]] std::string config_id(int which) const {
    zot_k_meta meta{};
    return zot_util_get_k_meta(e.handle(), &meta, which) == ZOT_OK ? meta.config_id : "none";
  }

  service remote;
  element e{remote.port()};
};

constexpr const char *first_id = "00000000-0000-0000-0000-000000000001";
constexpr const char *second_id = "00000000-0000-0000-0000-000000000002";
constexpr const char *third_id = "00000000-0000-0000-0000-000000000003";

TEST_F(WholeCycle, BringsAFirstConfigurationToAnEmptyElement) {
  const returned_list got = get_of(first_configuration());
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=8", "Zone/hq=8", "Radio/r5=8"}));
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
  EXPECT_FALSE(exists(knowledge_of(e) + "/prev_subsys.k"));
}

TEST_F(WholeCycle, ChangesNothingBeforeTheCommit) {
  bring_to(first_configuration());
  const auto cache = contents(e.conf_root());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  EXPECT_EQ(contents(e.conf_root()), cache);
  EXPECT_EQ(config_id(ZOT_K_NEW), second_id);
  EXPECT_EQ(config_id(ZOT_K_CURRENT), first_id);
}

TEST_F(WholeCycle, MarksAndCommitsASecondConfiguration) {
  bring_to(first_configuration());
  const returned_list got = get_of(second_configuration());
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  EXPECT_EQ(config_id(ZOT_K_CURRENT), second_id);
  EXPECT_EQ(config_id(ZOT_K_LAST), first_id);
}

TEST_F(WholeCycle, MarksEverythingModifiedInAnotherCluster) {
  bring_to(first_configuration());
  EXPECT_EQ(marks_of(get_of(first_configuration().cluster("cluster-2"))),
            (texts{"Wlan/guest=16", "Zone/hq=16", "Radio/r5=16"}));
}

// A publisher that lost its versions starts again at one.
TEST_F(WholeCycle, HandsOutTheNewBytesOfAVersionThatIsInForce) {
  bring_to(first_configuration());
  const publication renumbered = first_configuration()
                                     .put("Wlan", "guest", 1, "guest of another size")
                                     .put("Zone", "hq", 1, "HQ ONE")
                                     .config_id(second_id);
  const auto expect_new_bytes = [&](const returned_list &got) {
    ASSERT_EQ(got.status, ZOT_OK) << got.error_text;
    ASSERT_EQ(got.entries.size(), 3U);
    EXPECT_EQ(got.find(ZOT_CAT_WLAN, "guest")->bytes, "guest of another size");
    EXPECT_EQ(got.find(ZOT_CAT_ZONE, "hq")->bytes, "HQ ONE");
  };
  remote.publish(renumbered);
  expect_new_bytes(e.get(ZOT_STAT_FULL));
  const returned_list changes = e.get();
  expect_new_bytes(changes);
  EXPECT_EQ(marks_of(changes), (texts{"Wlan/guest=2", "Zone/hq=2", "Radio/r5=2"}));
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  expect_new_bytes(e.get(ZOT_STAT_FULL));
  e.restart();
  expect_new_bytes(e.get(ZOT_STAT_FULL | ZOT_STAT_CACHED));
}

TEST_F(WholeCycle, FindsNothingNewAfterTheCommit) {
  bring_to(first_configuration());
  bring_to(second_configuration());
  const returned_list got = e.get();
  EXPECT_EQ(got.status, ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=2", "Wlan/staff=2", "Radio/r5=2"}));
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_NO_UPDATE);
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_NO_UPDATE);
}

TEST_F(WholeCycle, DownloadsNeitherKNorFilesWhenNothingIsNew) {
  bring_to(first_configuration());
  remote.clear_requests();
  static_cast<void>(e.get());
  ASSERT_EQ(remote.requests().size(), 1U);
  EXPECT_TRUE(remote.requests()[0].path.ends_with(".checksum"));
}

TEST_F(WholeCycle, SettlesOnOneConfigurationWhenNothingIsNewTwice) {
  bring_to(first_configuration());
  bring_to(second_configuration());
  static_cast<void>(e.get());
  e.log().clear();
  EXPECT_EQ(e.get().status, ZOT_OK);
  EXPECT_TRUE(e.log().contains("No update on K , it doesn't need to update memory\n"));
  EXPECT_EQ(config_id(ZOT_K_LAST), second_id);
}

TEST_F(WholeCycle, KeepsTheConfigurationInForceAfterARollBack) {
  bring_to(first_configuration());
  bring_to(second_configuration());
  ASSERT_EQ(get_of(third_configuration()).status, ZOT_OK);
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  EXPECT_EQ(config_id(ZOT_K_CURRENT), second_id);
}

TEST_F(WholeCycle, RefusesARolledBackConfigurationThatIsOfferedAgain) {
  bring_to(first_configuration());
  bring_to(second_configuration());
  ASSERT_EQ(get_of(third_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  const returned_list again = e.get();
  EXPECT_EQ(again.status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(marks_of(again), (texts{"Wlan/guest=2", "Wlan/staff=2", "Radio/r5=2"}));
  EXPECT_EQ(again.entries[0].bytes, "guest two");
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_NO_UPDATE);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

TEST_F(WholeCycle, TakesAnotherConfigurationAfterARollBack) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(third_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  EXPECT_EQ(marks_of(get_of(second_configuration())),
            (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_FALSE(exists(knowledge_of(e) + "/corrupted.k"));
  EXPECT_FALSE(exists(knowledge_of(e) + "/corrupted.checksum"));
}

TEST_F(WholeCycle, OffersARolledBackConfigurationOnceAnotherWasCommitted) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(third_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  bring_to(second_configuration());
  EXPECT_EQ(get_of(third_configuration()).status, ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
}

TEST_F(WholeCycle, FindsItsConfigurationAgainAfterARestart) {
  bring_to(first_configuration());
  bring_to(second_configuration());
  e.restart();
  EXPECT_EQ(marks_of(e.get(ZOT_STAT_CACHED)),
            (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
  EXPECT_EQ(config_id(ZOT_K_CURRENT), second_id);
  EXPECT_EQ(config_id(ZOT_K_LAST), first_id);
}

TEST_F(WholeCycle, FindsNothingNewAfterARestart) {
  bring_to(first_configuration());
  e.restart();
  remote.clear_requests();
  EXPECT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
  EXPECT_EQ(remote.request_count(".k"), 0U);
}

TEST_F(WholeCycle, KnowsTheRolledBackConfigurationAfterARestart) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  e.restart();
  EXPECT_EQ(e.get().status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_NE(slot_of(e, ZOT_SLOT_CORRUPTED).k, nullptr);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(WholeCycle, StartsAgainWhenARestartCameBeforeTheCommit) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  e.restart();
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_NOT_READY);
  EXPECT_EQ(marks_of(e.get()), (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
}

TEST_F(WholeCycle, ReturnsCachedEntriesWithoutTheService) {
  bring_to(first_configuration());
  remote.stop();
  EXPECT_EQ(marks_of(e.get(ZOT_STAT_CACHED)), (texts{"Wlan/guest=8", "Zone/hq=8", "Radio/r5=8"}));
  EXPECT_EQ(e.get().status, ZOT_ERR_REMOTE_UNAVAIL);
}

TEST_F(WholeCycle, RearmsTheVerdictWithEveryGet) {
  bring_to(first_configuration());
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  ASSERT_EQ(get_of(third_configuration()).status, ZOT_OK);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), third_configuration()));
  EXPECT_EQ(config_id(ZOT_K_CURRENT), third_id);
}

TEST_F(WholeCycle, TakesAConfigurationWithoutObjects) {
  bring_to(first_configuration());
  const returned_list got = get_of(publication(first_configuration()).clear());
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=4", "Zone/hq=4", "Radio/r5=4"}));
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
}

TEST_F(WholeCycle, RunsManyTimesOnOneHandle) {
  for (std::uint64_t version = 1; version <= 6; ++version) {
    publication next = first_configuration();
    next.put("Wlan", "guest", version, "version " + std::to_string(version));
    ASSERT_EQ(get_of(next).status, ZOT_OK);
    if (version % 3 == 0) {
      ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK) << version;
      ASSERT_EQ(e.get().status, ZOT_ERR_SAME_AS_CORRUPTED) << version;
    } else {
      ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << version;
      ASSERT_TRUE(is_in_force_on_disk(e.conf_root(), next)) << version;
      ASSERT_EQ(e.get().status, ZOT_OK) << version;
    }
  }
}

// A cycle whose commit fails once.
class FailingCycle : public WholeCycle {
 protected:
  void SetUp() override {
    bring_to(first_configuration());
    ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  }
};

TEST_F(FailingCycle, CommitsInASecondCallAfterTheCopyOfTheKFailed) {
  const std::string k = e.tmp_root() + "/subsys.k";
  std::filesystem::rename(k, k + ".away");
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
  std::filesystem::rename(k + ".away", k);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

TEST_F(FailingCycle, CommitsInASecondCallAfterTheCopyOfTheFilesFailed) {
  const std::string files = e.tmp_root() + "/config";
  std::filesystem::rename(files, files + ".away");
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
  std::filesystem::rename(files + ".away", files);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
  e.restart();
  EXPECT_EQ(marks_of(e.get(ZOT_STAT_CACHED)),
            (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
}

TEST_F(FailingCycle, FindsNothingNewAfterTheSecondCall) {
  const std::string k = e.tmp_root() + "/subsys.k";
  std::filesystem::rename(k, k + ".away");
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
  std::filesystem::rename(k + ".away", k);
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
}

TEST_F(FailingCycle, HasTheConfigurationBeforeWhenARestartComesBeforeTheSecondCall) {
  std::filesystem::remove(e.tmp_root() + "/subsys.k");
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
  e.restart();
  EXPECT_EQ(config_id(ZOT_K_CURRENT), "00000000-0000-0000-0000-000000000001");
  ASSERT_EQ(e.get().status, ZOT_OK);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), second_configuration()));
}

class DevCycle : public testing::Test {
 protected:
  DevCycle() { first_configuration().install_dev(dev.path()); }
  temp_dir dev;
  service remote;
  element e{element_options{.port = remote.port(), .dev_path = dev.path()}};
};

TEST_F(DevCycle, ReadsTheConfigurationFromTheDevPath) {
  const returned_list got = e.get(ZOT_STAT_FULL);
  ASSERT_EQ(got.status, ZOT_OK);
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=32", "Zone/hq=32", "Radio/r5=32"}));
  EXPECT_EQ(got.entries[0].bytes, "guest one");
  EXPECT_TRUE(remote.requests().empty());
}

TEST_F(DevCycle, KnowsNoVerdictOfOthers) {
  ASSERT_EQ(e.get().status, ZOT_OK);
  write_bytes(std::string(e.handle()->conf_k_root) + "/corrupted.checksum", std::string(64, 'a'));
  EXPECT_EQ(e.get(ZOT_STAT_CACHED).status, ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
}

TEST_F(DevCycle, ReadsAnEditedConfigurationWithoutARestart) {
  ASSERT_EQ(e.get().status, ZOT_OK);
  second_configuration().install_dev(dev.path());
  const returned_list got = e.get();
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
  EXPECT_EQ(got.entries[0].bytes, "guest two");
}

TEST_F(DevCycle, NeitherCommitsNorRollsBack) {
  ASSERT_EQ(e.get().status, ZOT_OK);
  const auto before = contents(dev.path());
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK);
  EXPECT_EQ(contents(dev.path()), before);
}

TEST_F(DevCycle, NoticesADamagedFile) {
  write_bytes(dev / "config/Zone/hq/1", "HQ ONE");
  EXPECT_EQ(e.get().status, ZOT_ERR_CORRUPTED);
}

TEST_F(DevCycle, NoticesAMissingK) {
  std::filesystem::remove(dev / "knowledge/subsys.k");
  EXPECT_EQ(e.get().status, ZOT_ERR_CORRUPTED);
}

}  // namespace
