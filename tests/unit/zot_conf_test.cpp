// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/cycle/cycle_checks.hpp"
#include "tests/support/service.hpp"

namespace {
using namespace zot::test;

using texts = std::vector<std::string>;

constexpr const char *func = "zot_conf_get";

zot_list *const marker = reinterpret_cast<zot_list *>(0x10);

TEST(GetArguments, RefuseANullHandle) {
  zot_list *list = nullptr;
  EXPECT_EQ(zot_conf_get(nullptr, every_category(), every_change, &list), ZOT_ERR_NULL_INPUT);
}

TEST(GetArguments, RefuseANullListAndRecordNothing) {
  element e;
  zot_priv_err_set_errno(e.handle(), ZOT_ERR_TIMEOUT);
  EXPECT_EQ(zot_conf_get(e.handle(), every_category(), every_change, nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_util_get_err(e.handle()), ZOT_ERR_TIMEOUT);
}

TEST(GetArguments, RefuseAnEmptyMaskAfterThePathsWereReloaded) {
  element e;
  e.log().clear();
  const returned_list got = e.get(0);
  EXPECT_EQ(got.status, ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(got.error_text, "invalid conf_stat_mask: 0");
  EXPECT_TRUE(logged_in_order(
      e.log(), {{ZOT_LOG_INFO, ZOT_TOPIC_FILE | ZOT_TOPIC_K | ZOT_TOPIC_GPB,
                 "zot_priv_reload_sys_paths", "conf path = \"" + e.conf_root() + "\"\n"},
                {ZOT_LOG_ERROR, ZOT_TOPIC_GENERAL, func, "invalid conf_stat_mask: 0\n"}}));
}

TEST(GetArguments, LoadNothingForAnEmptyMask) {
  element e;
  static_cast<void>(e.get(0));
  EXPECT_EQ(e.handle()->load_flags, 0U);
}

TEST(Get, StartsByRecordingSuccess) {
  element e;
  e.log().clear();
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  ASSERT_FALSE(e.log().lines().empty());
  EXPECT_EQ(e.log().lines().front().text, "Success\n");
  EXPECT_EQ(e.log().lines().front().func, func);
}

TEST(Get, FollowsAChangedEnvironment) {
  element e;
  const std::string other = e.dir() / "other";
  const env_guard prefix("ZOT_PREFIX_CONF_ROOT", other);
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  EXPECT_EQ(e.handle()->conf_root, other + "/writable/zot/");
  EXPECT_TRUE(exists(other + "/writable/zot/knowledge"));
}

TEST(Get, PassesOnThatAPathCannotBeMade) {
  element e;
  write_bytes(e.dir() / "file", "x");
  const env_guard prefix("ZOT_PREFIX_TMP_ROOT", e.dir() / "file");
  zot_list *list = marker;
  EXPECT_EQ(zot_conf_get(e.handle(), every_category(), every_change, &list), ZOT_ERR_GENERIC);
  EXPECT_EQ(list, nullptr);
  EXPECT_FALSE(e.log().contains("Start to get new configuration.\n"));
}

TEST(Get, AnnouncesItself) {
  element e;
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  EXPECT_TRUE(logged(e.log(),
                     {ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, func, "Start to get new configuration.\n"}));
}

TEST(Get, LoadsTheStoredConfigurationOnce) {
  element e;
  install_current(e, first_configuration());
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  EXPECT_EQ(e.log().count("Start Init. Load K\n"), 1U);
}

TEST(Get, TriesAStoredConfigurationThatFailedNotAgain) {
  element e;
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  EXPECT_EQ(e.log().count("Start Init. Load K\n"), 1U);
}

TEST(GetCached, FindsNothingInAnEmptyCache) {
  element e;
  const returned_list got = e.get(ZOT_STAT_CACHED);
  EXPECT_EQ(got.status, ZOT_ERR_NO_CACHE);
  EXPECT_EQ(got.error_text, "No cached data now");
  EXPECT_FALSE(got.has_list);
}

TEST(GetCached, FindsNothingForOtherCategories) {
  element e;
  install_current(e, first_configuration());
  zot_catset vlan_only{};
  zot_catset_add(&vlan_only, ZOT_CAT_VLAN);
  EXPECT_EQ(e.get(ZOT_STAT_CACHED, vlan_only).status, ZOT_ERR_NO_CACHE);
}

TEST(GetCached, ReturnsWhatTheCacheHoldsWithoutAskingTheService) {
  const service remote;
  element e(remote.port());
  install_current(e, first_configuration());
  const returned_list got = e.get(ZOT_STAT_CACHED);
  EXPECT_EQ(got.status, ZOT_OK);
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=8", "Zone/hq=8", "Radio/r5=8"}));
  EXPECT_EQ(got.entries[0].bytes, "guest one");
  EXPECT_TRUE(remote.requests().empty());
}

TEST(GetCached, ComparesTheStoredConfigurationWithTheLastOne) {
  element e;
  install_last(e, first_configuration());
  install_current(e, second_configuration());
  EXPECT_EQ(marks_of(e.get(ZOT_STAT_CACHED)),
            (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
}

TEST(GetCached, CountsAsAllChangesWhateverElseIsAskedFor) {
  element e;
  install_last(e, first_configuration());
  install_current(e, second_configuration());
  EXPECT_EQ(marks_of(e.get(ZOT_STAT_CACHED | ZOT_STAT_FULL | ZOT_STAT_ADDED)),
            (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
}

TEST(GetCached, RecordsItsOwnName) {
  element e;
  install_current(e, first_configuration());
  EXPECT_EQ(e.get(ZOT_STAT_CACHED).error_text, "zot_conf_get");
  EXPECT_EQ(zot_util_get_err(e.handle()), ZOT_OK);
}

TEST(GetCached, SaysWhereTheAnswerComesFrom) {
  element e;
  install_current(e, first_configuration());
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, func,
                               "No update data, return cached results.\n"}));
}

TEST(GetCached, LoadsTheListOnce) {
  element e;
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  static_cast<void>(e.get(ZOT_STAT_CACHED));
  EXPECT_EQ(e.log().count("Init. Create diff list for cached storage: Done\n"), 1U);
}

TEST(GetCached, FailsForAFileThatWasAltered) {
  element e;
  install_current(e, first_configuration());
  ASSERT_EQ(e.get(ZOT_STAT_CACHED).status, ZOT_OK);
  write_bytes(e.conf_root() + "config/Zone/hq/1", "HQ ONE");
  zot_list *list = marker;
  EXPECT_EQ(zot_conf_get(e.handle(), every_category(), ZOT_STAT_CACHED, &list), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(list, nullptr);
}

class GetUpdate : public testing::Test {
 protected:
  GetUpdate() { remote.publish(second_configuration()); }
  service remote;
  element e{remote.port()};
};

TEST_F(GetUpdate, ReturnsTheEntriesOfANewConfiguration) {
  install_current(e, first_configuration());
  const returned_list got = e.get();
  ASSERT_EQ(got.status, ZOT_OK);
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=16", "Wlan/staff=8", "Zone/hq=4", "Radio/r5=2"}));
  EXPECT_EQ(got.entries[0].bytes, "guest two");
  EXPECT_FALSE(got.entries[2].has_data);
  EXPECT_EQ(got.entries[2].size, 0U);
}

TEST_F(GetUpdate, ReturnsTheChangesThatAreAskedFor) {
  install_current(e, first_configuration());
  EXPECT_EQ(marks_of(e.get(ZOT_STAT_ADDED | ZOT_STAT_DELETED)),
            (texts{"Wlan/staff=8", "Zone/hq=4"}));
}

TEST_F(GetUpdate, ReturnsTheFullConfiguration) {
  install_current(e, first_configuration());
  EXPECT_EQ(marks_of(e.get(ZOT_STAT_FULL)),
            (texts{"Wlan/guest=32", "Wlan/staff=32", "Radio/r5=32"}));
}

TEST_F(GetUpdate, ReturnsTheCategoriesThatAreAskedFor) {
  zot_catset radio_only{};
  zot_catset_add(&radio_only, ZOT_CAT_RADIO);
  EXPECT_EQ(marks_of(e.get(every_change, radio_only)), (texts{"Radio/r5=8"}));
}

TEST_F(GetUpdate, ReturnsAnEmptyListWhenNothingFits) {
  const returned_list got = e.get(ZOT_STAT_DELETED);
  EXPECT_EQ(got.status, ZOT_OK);
  EXPECT_TRUE(got.has_list);
  EXPECT_TRUE(got.entries.empty());
}

TEST_F(GetUpdate, LogsTheEnd) {
  static_cast<void>(e.get());
  EXPECT_TRUE(
      logged(e.log(), {ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, func, "Get new configuration: Done\n"}));
}

TEST_F(GetUpdate, LogsTheCountersUnderTheOtherLabels) {
  static_cast<void>(e.get());
  const zot_core_stat &stat = e.handle()->stat;
  ASSERT_NE(stat.bytes_written, stat.bytes_read);
  char line[128];
  std::snprintf(line, sizeof line, "Read Bytes: %19llu, Write Bytes: %19llu\n",
                static_cast<unsigned long long>(stat.bytes_written),
                static_cast<unsigned long long>(stat.bytes_read));
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, func, line}));
}

int download_five_gib(zot_ctx *handle, zot_k *k, zot_list *gpbs) {
  handle->stat.bytes_written += uint64_t{5} << 30;
  handle->stat.bytes_read += uint64_t{6} << 30;
  return ap_download_gpb(handle, k, gpbs);
}

TEST_F(GetUpdate, LogsCountersBeyondFourGibibytes) {
  static_cast<void>(e.get());
  const zot_core_stat usual = e.handle()->stat;
  e.handle()->fns.download_gpb = download_five_gib;
  static_cast<void>(e.get());
  const std::string read = std::to_string(usual.bytes_written + (uint64_t{5} << 30));
  const std::string written = std::to_string(usual.bytes_read + (uint64_t{6} << 30));
  EXPECT_TRUE(logged(
      e.log(), {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, func,
                "Read Bytes:          " + read + ", Write Bytes:          " + written + "\n"}));
}

TEST_F(GetUpdate, TakesAnUnchangedConfigurationForSuccess) {
  install_current(e, second_configuration());
  const returned_list got = e.get();
  EXPECT_EQ(got.status, ZOT_OK);
  EXPECT_EQ(zot_util_get_err(e.handle()), ZOT_OK);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=2", "Wlan/staff=2", "Radio/r5=2"}));
}

TEST_F(GetUpdate, HandsOverTheCachedListWhileTheRolledBackConfigurationIsOffered) {
  install_current(e, first_configuration());
  install_corrupted(e, second_configuration());
  const returned_list got = e.get();
  EXPECT_EQ(got.status, ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(got.error_text, "New configuration is still corrupted.");
  EXPECT_EQ(marks_of(got), (texts{"Wlan/guest=8", "Zone/hq=8", "Radio/r5=8"}));
  EXPECT_TRUE(logged(
      e.log(), {ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, func, "Start to do filter returned list.\n"}));
}

TEST_F(GetUpdate, HandsOverNothingWhenTheCachedListFailsBesideARolledBackConfiguration) {
  install_current(e, first_configuration());
  install_corrupted(e, second_configuration());
  ASSERT_EQ(e.get().status, ZOT_ERR_SAME_AS_CORRUPTED);
  write_bytes(e.conf_root() + "config/Zone/hq/1", "HQ ONE");
  zot_list *list = marker;
  EXPECT_EQ(zot_conf_get(e.handle(), every_category(), every_change, &list), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(list, nullptr);
}

TEST_F(GetUpdate, HandsOverNothingWhenTheCheckFails) {
  e.set_port(closed_port());
  zot_list *list = marker;
  EXPECT_EQ(zot_conf_get(e.handle(), every_category(), every_change, &list),
            ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(list, nullptr);
  EXPECT_FALSE(e.log().contains("Get new configuration: Done\n"));
}

TEST_F(GetUpdate, HandsOverNothingWhenAFileWasAlteredAfterTheCheck) {
  static_cast<void>(e.get());
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK);
  write_bytes(e.tmp_root() + "/config/Wlan/guest/2", "GUEST TWO");
  write_bytes(e.conf_root() + "/config/Wlan/guest/2", "GUEST TWO");
  zot_list *list = marker;
  EXPECT_EQ(zot_conf_get(e.handle(), every_category(), every_change, &list), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(list, nullptr);
}

TEST(Commit, RefusesANullHandle) {
  EXPECT_EQ(zot_conf_commit(nullptr), ZOT_ERR_NULL_INPUT);
}

TEST(Commit, NamesTheCallThatHasToComeFirst) {
  element e;
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_NOT_READY);
  EXPECT_EQ(e.error_text(), "Should run zot_conf_get() before doing zot_priv_commit_conf()\n.");
}

TEST(RollBackCall, RefusesANullHandle) {
  EXPECT_EQ(zot_conf_roll_back(nullptr), ZOT_ERR_NULL_INPUT);
}

TEST(RollBackCall, NamesTheCallThatHasToComeFirst) {
  element e;
  EXPECT_EQ(zot_conf_roll_back(e.handle()), ZOT_ERR_NOT_READY);
  EXPECT_EQ(e.error_text(), "Should run zot_conf_get() before doing roll-back\n.");
}

class FreeRetData : public testing::Test {
 protected:
  void SetUp() override {
    install_current(e, first_configuration());
    ASSERT_EQ(zot_conf_get(e.handle(), every_category(), ZOT_STAT_CACHED, &list), ZOT_OK);
    e.log().clear();
  }
  element e;
  zot_list *list = nullptr;
};

TEST_F(FreeRetData, ClearsTheCallersPointer) {
  EXPECT_EQ(zot_conf_free_ret_data(e.handle(), &list), ZOT_OK);
  EXPECT_EQ(list, nullptr);
}

TEST_F(FreeRetData, LogsEachEntryAndTheList) {
  char entry[64];
  char head[64];
  std::snprintf(entry, sizeof entry, "Free return entry: %p\n", static_cast<void *>(list->next));
  std::snprintf(head, sizeof head, "Free returned list: %p\n", static_cast<void *>(list));
  zot_conf_free_ret_data(e.handle(), &list);
  constexpr const char *name = "zot_conf_free_ret_data";
  EXPECT_TRUE(logged_in_order(
      e.log(), {{ZOT_LOG_DEBUG, ZOT_TOPIC_DETAIL, name, entry},
                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, name, head},
                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, name, "Free returned data: Done\n"}}));
  EXPECT_EQ(e.log().lines().size(), 5U) << e.log().dump();
}

TEST_F(FreeRetData, RecordsNoSuccess) {
  zot_priv_err_set_errno(e.handle(), ZOT_ERR_TIMEOUT);
  zot_conf_free_ret_data(e.handle(), &list);
  EXPECT_EQ(zot_util_get_err(e.handle()), ZOT_ERR_TIMEOUT);
}

TEST_F(FreeRetData, LeavesTheBytesToTheHandle) {
  const auto &first = *reinterpret_cast<const zot_ret_data *>(list->next);
  const void *const data = first.data;
  const std::string before(static_cast<const char *>(data), first.size);
  zot_conf_free_ret_data(e.handle(), &list);
  EXPECT_EQ(std::string(static_cast<const char *>(data), before.size()), before);
}

TEST_F(FreeRetData, FreesWithoutAHandle) {
  EXPECT_EQ(zot_conf_free_ret_data(nullptr, &list), ZOT_OK);
  EXPECT_EQ(list, nullptr);
}

TEST_F(FreeRetData, RecordsAMissingPointer) {
  EXPECT_EQ(zot_conf_free_ret_data(e.handle(), nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(e.error_text(), "NULL input");
  zot_conf_free_ret_data(e.handle(), &list);
}

TEST_F(FreeRetData, RecordsAMissingList) {
  zot_list *none = nullptr;
  EXPECT_EQ(zot_conf_free_ret_data(e.handle(), &none), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_util_get_err(e.handle()), ZOT_ERR_NULL_INPUT);
  zot_conf_free_ret_data(e.handle(), &list);
}

TEST(FreeRetDataWithoutAHandle, RefusesAMissingList) {
  zot_list *none = nullptr;
  EXPECT_EQ(zot_conf_free_ret_data(nullptr, &none), ZOT_ERR_NULL_INPUT);
}

TEST(FreeRetDataDeathTest, AbortsWithoutHandleAndPointer) {
  EXPECT_DEATH(zot_conf_free_ret_data(nullptr, nullptr), "reg_data != \\(\\(void \\*\\)0\\)");
}

TEST(Free, RefusesANullHandle) {
  EXPECT_EQ(zot_conf_free(nullptr), ZOT_ERR_NULL_INPUT);
}

TEST(Free, ReleasesANewHandle) {
  element e;
  EXPECT_EQ(zot_conf_free(zot_conf_init_args("AP", "aabb", 4, e.parm())), ZOT_OK);
}

TEST(Free, ReleasesTheSlotsInOrder) {
  service remote;
  remote.publish(second_configuration());
  element e(remote.port());
  install_last(e, third_configuration());
  install_current(e, first_configuration());
  install_corrupted(e, third_configuration());
  ASSERT_EQ(e.get().status, ZOT_OK);
  e.log().clear();
  e.stop();
  constexpr const char *name = "zot_conf_free";
  EXPECT_TRUE(logged_in_order(
      e.log(), {{ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, name, "Free current K: Done\n"},
                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, name, "Free current GPB list: Done\n"},
                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, name, "Free last K: Done\n"},
                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, name, "Free last GPB list: Done\n"},
                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, name, "Free temporary K: Done\n"},
                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, name, "Free temporary GPB list: Done\n"},
                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, name, "Free corrupted K: Done\n"}}));
}

TEST(Free, NamesTheRecordsThatItReleases) {
  element e;
  install_current(e, first_configuration());
  ASSERT_EQ(e.get(ZOT_STAT_CACHED).status, ZOT_OK);
  char k[64];
  char gpbs[64];
  const zot_slot &current = slot_of(e, ZOT_SLOT_CURRENT);
  std::snprintf(k, sizeof k, "Free current K = %p\n", static_cast<void *>(current.k));
  std::snprintf(gpbs, sizeof gpbs, "Free current GPB = %p\n", static_cast<void *>(current.gpbs));
  e.stop();
  EXPECT_TRUE(
      logged_in_order(e.log(), {{ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "zot_conf_free", k},
                                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "zot_conf_free", gpbs}}));
}

TEST(Free, ReleasesASharedKOnceThroughItsLastSlot) {
  element e;
  install_current(e, first_configuration());
  ASSERT_EQ(e.get(ZOT_STAT_CACHED).status, ZOT_OK);
  zot_priv_set_k(e.handle(), ZOT_SLOT_TMP, slot_of(e, ZOT_SLOT_CURRENT).k);
  zot_priv_set_gpb(e.handle(), ZOT_SLOT_TMP, slot_of(e, ZOT_SLOT_CURRENT).gpbs);
  e.stop();
  EXPECT_EQ(e.log().count("Free temporary K: Done\n"), 1U);
  EXPECT_EQ(e.log().count("Free temporary GPB list: Done\n"), 1U);
  EXPECT_FALSE(e.log().contains("Free current K: Done\n"));
  EXPECT_FALSE(e.log().contains("Free current GPB list: Done\n"));
}

}  // namespace
