// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "gpb_entries.hpp"
#include "tests/cycle/cycle_checks.hpp"
#include "tests/support/service.hpp"
#include "tests/unit/zot_priv/model/model_records.hpp"

namespace {
using namespace zot::test;

using texts = std::vector<std::string>;

constexpr const char *check = "zot_priv_chk_update";
constexpr const char *no_saved_k = "No saved corrupted K\n";

// An element beside a service that publishes the second configuration.
class CheckUpdate : public testing::Test {
 protected:
  CheckUpdate() { remote.publish(second_configuration()); }

  // Leaves the cache as an earlier process would.
  void have_current(const publication &published) {
    install_current(e, published);
    zot_priv_init_load_conf(e.handle());
  }
  int run() { return zot_priv_chk_update(e.handle()); }
  [[nodiscard]] const zot_list *gpbs(std::uint32_t slot) const { return slot_of(e, slot).gpbs; }
  [[nodiscard]] const zot_k *k(std::uint32_t slot) const { return slot_of(e, slot).k; }

  service remote;
  element e{remote.port()};
};

TEST(CheckUpdateArguments, RefuseANullHandle) {
  EXPECT_EQ(zot_priv_chk_update(nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_handle_no_update(nullptr), ZOT_ERR_NULL_INPUT);
}

TEST_F(CheckUpdate, SaysOnceThatNoCorruptedKIsSaved) {
  run();
  run();
  EXPECT_EQ(e.log().count(no_saved_k), 1U);
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_INFO, k_file_topics, check, no_saved_k}));
}

TEST_F(CheckUpdate, WarnsAboutASavedCorruptedKAlthoughItWasLoaded) {
  install_corrupted(e, third_configuration());
  run();
  const log_record *const warning = e.log().find_part("Unable to load corrupted K:");
  ASSERT_NE(warning, nullptr) << e.log().dump();
  EXPECT_EQ(warning->level, ZOT_LOG_WARN);
  EXPECT_EQ(warning->mask, k_file_topics);
  EXPECT_EQ(warning->func, check);
  EXPECT_EQ(text_of(k(ZOT_SLOT_CORRUPTED)), third_configuration().k_text());
}

TEST_F(CheckUpdate, GoesOnWhenTheCorruptedKCannotBeRead) {
  write_bytes(knowledge_of(e) + "/corrupted.checksum", "no checksum\n");
  EXPECT_EQ(run(), ZOT_OK);
  EXPECT_TRUE(e.log().contains_part("Unable to load corrupted K:"));
  EXPECT_EQ(k(ZOT_SLOT_CORRUPTED), nullptr);
}

TEST_F(CheckUpdate, PutsANewConfigurationIntoTheTemporarySlot) {
  ASSERT_EQ(run(), ZOT_OK);
  EXPECT_EQ(text_of(k(ZOT_SLOT_TMP)), second_configuration().k_text());
  EXPECT_EQ(loaded_bytes(gpbs(ZOT_SLOT_TMP)), (texts{"guest two", "staff one", "radio"}));
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
  EXPECT_EQ(e.error_text(), "Success");
}

TEST_F(CheckUpdate, MarksANewConfigurationAgainstTheOneInForce) {
  have_current(first_configuration());
  ASSERT_EQ(run(), ZOT_OK);
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/2=16", "/Wlan/staff/1=8", "/Zone/hq/1=4", "/Radio/r5/3=2"}));
  EXPECT_EQ(e.handle()->ret.root, e.handle()->tmp_root);
}

TEST_F(CheckUpdate, TakesEverythingForAddedWhenNothingIsInForce) {
  ASSERT_EQ(run(), ZOT_OK);
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/2=8", "/Wlan/staff/1=8", "/Radio/r5/3=8"}));
}

TEST_F(CheckUpdate, LeavesWhatIsInForceAloneWhenItFindsNews) {
  have_current(first_configuration());
  const zot_slot before = slot_of(e, ZOT_SLOT_CURRENT);
  const auto cache = contents(e.conf_root());
  run();
  EXPECT_EQ(k(ZOT_SLOT_CURRENT), before.k);
  EXPECT_EQ(gpbs(ZOT_SLOT_CURRENT), before.gpbs);
  EXPECT_EQ(contents(e.conf_root()), cache);
}

TEST_F(CheckUpdate, KeepsInMindThatTheMarksAreOfAConfigurationNotYetDecided) {
  ASSERT_EQ(run(), ZOT_OK);
  EXPECT_EQ(e.handle()->own.marks_waiting, 1U);
}

TEST_F(CheckUpdate, LogsTheStepsOfANewConfiguration) {
  run();
  EXPECT_TRUE(logged_in_order(
      e.log(), {{ZOT_LOG_INFO, k_file_topics, check, no_saved_k},
                {ZOT_LOG_INFO, ZOT_TOPIC_TRANSFER | ZOT_TOPIC_GPB, check, "Do synchronize GPB.\n"},
                {ZOT_LOG_INFO, ZOT_TOPIC_GPB, check, "Update temporary GPB: Done\n"},
                {ZOT_LOG_INFO, ZOT_TOPIC_GPB, check, "Update returned GPB list: Done\n"}}));
}

TEST_F(CheckUpdate, ReplacesATemporaryConfigurationThatNobodyCommitted) {
  run();
  remote.publish(third_configuration());
  ASSERT_EQ(run(), ZOT_OK);
  EXPECT_EQ(loaded_bytes(gpbs(ZOT_SLOT_TMP)), (texts{"guest three", "staff one", "radio"}));
}

TEST_F(CheckUpdate, StartsFromZeroedStatistics) {
  zot_core_stat &stat = e.handle()->stat;
  stat.state = ZOT_CYCLE_DONE_COMMIT | ZOT_CYCLE_NEW_CONF;
  stat.reserved = 1;
  stat.bytes_written = stat.bytes_read = 7;
  e.set_port(closed_port());
  ASSERT_EQ(run(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(stat.state, 0U);
  EXPECT_EQ(stat.reserved, 0U);
  EXPECT_EQ(stat.bytes_written, 0U);
}

TEST_F(CheckUpdate, LoadsTheReturnedListOfTheCacheOnce) {
  have_current(second_configuration());
  run();
  run();
  EXPECT_EQ(e.log().count("Init. Create diff list for cached storage: Done\n"), 1U);
}

TEST_F(CheckUpdate, LeavesTheTemporarySlotAloneWhenTheFetchFails) {
  run();
  const zot_slot before = slot_of(e, ZOT_SLOT_TMP);
  e.set_port(closed_port());
  EXPECT_EQ(run(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(k(ZOT_SLOT_TMP), before.k);
  EXPECT_EQ(gpbs(ZOT_SLOT_TMP), before.gpbs);
  EXPECT_EQ(state_of(e), 0U);
}

TEST_F(CheckUpdate, LoadsNoReturnedListWhenTheFetchFails) {
  e.set_port(closed_port());
  run();
  EXPECT_EQ(e.handle()->ret.list, nullptr);
}

TEST_F(CheckUpdate, KeepsTheReturnedListWhenTheGpbFilesFail) {
  have_current(first_configuration());
  remote.answer("/tgz", 404, "none");
  EXPECT_EQ(run(), ZOT_ERR_REMOTE_UNAVAIL);
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/1=8", "/Zone/hq/1=8", "/Radio/r5/3=8"}));
  EXPECT_EQ(gpbs(ZOT_SLOT_TMP), nullptr);
  EXPECT_EQ(text_of(k(ZOT_SLOT_TMP)), second_configuration().k_text());
  EXPECT_EQ(state_of(e), 0U);
}

int download_without_a_root(zot_ctx *handle, zot_k *k, zot_list *gpbs) {
  const int status = ap_download_gpb(handle, k, gpbs);
  handle->tmp_root[0] = '\0';
  return status;
}

TEST_F(CheckUpdate, LeavesNoDanglingListWhenTheReturnedListFails) {
  e.handle()->fns.download_gpb = download_without_a_root;
  EXPECT_EQ(run(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(e.error_text(), "[zot_priv_update_cached_ret_gpb_list]: empty GPB root");
  EXPECT_EQ(gpbs(ZOT_SLOT_TMP), nullptr);
  EXPECT_EQ(state_of(e), 0U);
}

TEST_F(CheckUpdate, LeavesTheLastKFileAloneWhenEverythingIsTheSame) {
  have_current(second_configuration());
  install_last(e, second_configuration());
  zot_priv_init_load_prev_k(e.handle());
  write_bytes(knowledge_of(e) + "/prev_subsys.k", "marker");
  EXPECT_EQ(run(), ZOT_NO_UPDATE);
  EXPECT_EQ(read_bytes(knowledge_of(e) + "/prev_subsys.k"), "marker");
}

TEST_F(CheckUpdate, SharesTheListInForceWhenEverythingIsTheSame) {
  have_current(second_configuration());
  install_last(e, second_configuration());
  const zot_list *const in_force = gpbs(ZOT_SLOT_CURRENT);
  ASSERT_EQ(run(), ZOT_NO_UPDATE);
  EXPECT_EQ(gpbs(ZOT_SLOT_TMP), in_force);
  EXPECT_EQ(gpbs(ZOT_SLOT_CURRENT), in_force);
  EXPECT_NE(gpbs(ZOT_SLOT_LAST), in_force);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
  EXPECT_EQ(e.error_text(), "No update data.");
}

TEST_F(CheckUpdate, LogsThatEverythingIsTheSame) {
  have_current(second_configuration());
  install_last(e, second_configuration());
  run();
  const std::string slots = "cur = " + model::address_text(gpbs(ZOT_SLOT_CURRENT)) +
                            ", prev = " + model::address_text(gpbs(ZOT_SLOT_LAST)) +
                            ", tmp = " + model::address_text(gpbs(ZOT_SLOT_TMP)) + "\n";
  EXPECT_TRUE(logged_in_order(
      e.log(),
      {{ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, check, slots},
       {ZOT_LOG_INFO, ZOT_TOPIC_K, check, "No update on K , it doesn't need to update memory\n"},
       {ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, check, "No update data.\n"}}));
}

TEST_F(CheckUpdate, RewritesADifferentLastK) {
  have_current(second_configuration());
  install_last(e, first_configuration());
  ASSERT_EQ(run(), ZOT_NO_UPDATE);
  EXPECT_EQ(read_bytes(knowledge_of(e) + "/prev_subsys.k"), second_configuration().k_text());
  EXPECT_EQ(read_bytes(knowledge_of(e) + "/prev_subsys.checksum"),
            second_configuration().checksum_text());
}

TEST_F(CheckUpdate, SharesOneListAmongThreeSlotsAfterRewritingTheLastK) {
  have_current(second_configuration());
  install_last(e, first_configuration());
  const zot_list *const in_force = gpbs(ZOT_SLOT_CURRENT);
  ASSERT_EQ(run(), ZOT_NO_UPDATE);
  EXPECT_EQ(gpbs(ZOT_SLOT_CURRENT), in_force);
  EXPECT_EQ(gpbs(ZOT_SLOT_LAST), in_force);
  EXPECT_EQ(gpbs(ZOT_SLOT_TMP), in_force);
  EXPECT_EQ(k(ZOT_SLOT_LAST), k(ZOT_SLOT_TMP));
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
  EXPECT_EQ(e.error_text(), "No update data.");
}

TEST_F(CheckUpdate, FreesASharedListOnce) {
  have_current(second_configuration());
  install_last(e, first_configuration());
  run();
  e.log().clear();
  e.stop();
  EXPECT_EQ(e.log().count("Free temporary GPB list: Done\n"), 1U);
  EXPECT_FALSE(e.log().contains("Free current GPB list: Done\n"));
  EXPECT_FALSE(e.log().contains("Free last GPB list: Done\n"));
}

TEST_F(CheckUpdate, DropsDeletedEntriesWhenItRewritesTheLastK) {
  have_current(second_configuration());
  install_last(e, first_configuration());
  run();
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/2=2", "/Wlan/staff/1=2", "/Radio/r5/3=2"}));
}

TEST_F(CheckUpdate, LogsTheRewritingOfTheLastK) {
  have_current(second_configuration());
  install_last(e, first_configuration());
  run();
  EXPECT_TRUE(logged_in_order(
      e.log(), {{ZOT_LOG_INFO, ZOT_TOPIC_K, check, "No update on K; do rotate last K\n"},
                {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "zot_priv_handle_no_update",
                 "Remove deleted GPB from returned list\n"},
                {ZOT_LOG_INFO, ZOT_TOPIC_K, check, "Update last K: Done\n"},
                {ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, check, "No update data.\n"}}));
}

TEST_F(CheckUpdate, WritesTheLastKWhenThereIsNone) {
  have_current(second_configuration());
  ASSERT_EQ(run(), ZOT_NO_UPDATE);
  EXPECT_EQ(read_bytes(knowledge_of(e) + "/prev_subsys.k"), second_configuration().k_text());
  EXPECT_EQ(k(ZOT_SLOT_LAST), k(ZOT_SLOT_TMP));
}

TEST_F(CheckUpdate, ChangesNoSlotButTheTemporaryOneWhenTheRewritingFails) {
  have_current(second_configuration());
  install_last(e, first_configuration());
  zot_priv_init_load_prev_k(e.handle());
  const zot_slot last = slot_of(e, ZOT_SLOT_LAST);
  std::filesystem::remove(knowledge_of(e) + "/prev_subsys.k");
  write_bytes(knowledge_of(e) + "/prev_subsys.k/in/the/way", "x");
  EXPECT_EQ(run(), ZOT_ERR_GENERIC);
  EXPECT_EQ(k(ZOT_SLOT_LAST), last.k);
  EXPECT_EQ(gpbs(ZOT_SLOT_LAST), last.gpbs);
  EXPECT_EQ(text_of(k(ZOT_SLOT_TMP)), second_configuration().k_text());
  EXPECT_EQ(state_of(e), 0U);
}

TEST_F(CheckUpdate, KnowsTheKThatWasRolledBack) {
  have_current(first_configuration());
  install_corrupted(e, second_configuration());
  EXPECT_EQ(run(), ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_EQ(state_of(e), ZOT_CYCLE_SAME_K);
  EXPECT_EQ(text_of(k(ZOT_SLOT_TMP)), second_configuration().k_text());
  EXPECT_EQ(remote.request_count(".k"), 0U);
}

TEST_F(CheckUpdate, DoesNotRecordThatTheKWasRolledBack) {
  install_corrupted(e, second_configuration());
  ASSERT_EQ(run(), ZOT_ERR_SAME_AS_CORRUPTED);
  EXPECT_NE(zot_util_get_err(e.handle()), ZOT_ERR_SAME_AS_CORRUPTED);
}

TEST_F(CheckUpdate, LoadsTheReturnedListBesideAKThatWasRolledBack) {
  have_current(first_configuration());
  install_corrupted(e, second_configuration());
  run();
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/1=8", "/Zone/hq/1=8", "/Radio/r5/3=8"}));
}

TEST(CheckUpdateInDevMode, ReadsTheReturnedFilesFromTheDevPath) {
  const temp_dir dev;
  first_configuration().install_dev(dev.path());
  element e(element_options{.dev_path = dev.path()});
  ASSERT_EQ(zot_priv_chk_update(e.handle()), ZOT_OK);
  EXPECT_EQ(e.handle()->ret.root, e.handle()->conf_root);
  EXPECT_EQ(e.handle()->conf_root, dev.path());
}

class HandleNoUpdate : public CheckUpdate {
 protected:
  // A new configuration waits while the first one is in force and there is no last one.
  void SetUp() override {
    have_current(first_configuration());
    ASSERT_EQ(run(), ZOT_OK);
  }
};

TEST_F(HandleNoUpdate, AlignsTheSlotsWithTheTemporaryK) {
  const zot_k *const fetched = k(ZOT_SLOT_TMP);
  ASSERT_EQ(zot_priv_handle_no_update(e.handle()), ZOT_OK);
  EXPECT_EQ(k(ZOT_SLOT_LAST), fetched);
  EXPECT_EQ(k(ZOT_SLOT_TMP), fetched);
  EXPECT_EQ(gpbs(ZOT_SLOT_LAST), gpbs(ZOT_SLOT_CURRENT));
  EXPECT_EQ(gpbs(ZOT_SLOT_TMP), gpbs(ZOT_SLOT_CURRENT));
}

TEST_F(HandleNoUpdate, DropsDeletedEntriesAndMarksTheOthersUnchanged) {
  zot_priv_handle_no_update(e.handle());
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/2=2", "/Wlan/staff/1=2", "/Radio/r5/3=2"}));
}

TEST_F(HandleNoUpdate, PassesOnAFailedRotationWithNothingChanged) {
  std::filesystem::remove(e.tmp_root() + "/subsys.checksum");
  const zot_slot temporary = slot_of(e, ZOT_SLOT_TMP);
  EXPECT_EQ(zot_priv_handle_no_update(e.handle()), ZOT_ERR_GENERIC);
  EXPECT_EQ(k(ZOT_SLOT_LAST), nullptr);
  EXPECT_EQ(k(ZOT_SLOT_TMP), temporary.k);
  EXPECT_EQ(gpbs(ZOT_SLOT_TMP), temporary.gpbs);
}

TEST(CoreStat, IsZeroedAsAWhole) {
  zot_core_stat stat{1, 2, 3, 4};
  zot_core_reset_stat(&stat);
  const zot_core_stat zero{};
  EXPECT_EQ(std::memcmp(&stat, &zero, sizeof zero), 0);
}

}  // namespace
