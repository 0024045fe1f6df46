// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "gpb_entries.hpp"
#include "tests/cycle/cycle_checks.hpp"

namespace {
using namespace zot::test;

using texts = std::vector<std::string>;

constexpr std::uint32_t conf_loaded = ZOT_LOADED_CONF | ZOT_LOADED_CONF_GPB;

// A K whose only GPB entry states no size, so that no list can be built from it.
publication without_a_size() {
  publication made;
  made.set_k_text(R"({"clusterId":"c","gpbs":[{"path":"/Wlan/guest/1","checksum":"00"}]})");
  return made;
}

TEST(LoadConf, FillsTheCurrentSlotFromTheCache) {
  element e;
  install_current(e, first_configuration());
  ASSERT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_OK);
  const zot_slot &current = slot_of(e, ZOT_SLOT_CURRENT);
  EXPECT_EQ(text_of(current.k), first_configuration().k_text());
  EXPECT_STREQ(current.k->root, e.conf_root().c_str());
  EXPECT_EQ(loaded_bytes(current.gpbs), (texts{"guest one", "hq one", "radio"}));
}

TEST(LoadConf, LogsItsSteps) {
  element e;
  install_current(e, first_configuration());
  zot_priv_init_load_conf(e.handle());
  constexpr const char *func = "zot_priv_init_load_conf";
  EXPECT_TRUE(logged_in_order(
      e.log(), {{ZOT_LOG_INFO, k_file_topics, func, "Start Init. Load K\n"},
                {ZOT_LOG_INFO, k_file_topics, func, "Init. Load K: Done\n"},
                {ZOT_LOG_INFO, gpb_file_topics, func, "Init. Load GPB list from K: Done\n"},
                {ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, func,
                 "Init. Load current configuration from cached storage: Done\n"}}));
}

TEST(LoadConf, PassesOnThatTheCacheIsEmptyAndLogsNoMore) {
  element e;
  EXPECT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_ERR_NO_FILE);
  EXPECT_TRUE(e.log().contains("Start Init. Load K\n"));
  EXPECT_FALSE(e.log().contains_part("Init. Load K: Done"));
}

TEST(LoadConf, SetsBothLoadBitsEvenWhenItFails) {
  element e;
  zot_priv_init_load_conf(e.handle());
  EXPECT_EQ(e.handle()->load_flags, conf_loaded);
}

TEST(LoadConf, IsNotTriedAgainAfterAFailure) {
  element e;
  zot_priv_init_load_conf(e.handle());
  install_current(e, first_configuration());
  EXPECT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_OK);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CURRENT).k, nullptr);
}

TEST(LoadConf, LoadsOnceOnly) {
  element e;
  install_current(e, first_configuration());
  zot_priv_init_load_conf(e.handle());
  EXPECT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_OK);
  EXPECT_EQ(e.log().count("Start Init. Load K\n"), 1U);
}

TEST(LoadConf, RunsWhenOnlyOneOfTheTwoBitsIsSet) {
  element e;
  install_current(e, first_configuration());
  e.handle()->load_flags = ZOT_LOADED_CONF;
  EXPECT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_OK);
  EXPECT_NE(slot_of(e, ZOT_SLOT_CURRENT).k, nullptr);
}

TEST(LoadConf, NeverOverwritesAFilledSlot) {
  element e;
  install_current(e, first_configuration());
  zot_priv_init_load_conf(e.handle());
  const zot_k *const before = slot_of(e, ZOT_SLOT_CURRENT).k;
  e.handle()->load_flags = 0;
  EXPECT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_OK);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CURRENT).k, before);
}

struct broken_cache {
  const char *name;
  void (*damage)(const element &);

  friend void PrintTo(const broken_cache &which, std::ostream *out) { *out << which.name; }
};

class LoadConfFromABrokenCache : public testing::TestWithParam<broken_cache> {};

TEST_P(LoadConfFromABrokenCache, FailsAndLeavesTheSlotEmpty) {
  element e;
  install_current(e, first_configuration());
  GetParam().damage(e);
  EXPECT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CURRENT).k, nullptr);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CURRENT).gpbs, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Files, LoadConfFromABrokenCache,
    testing::Values(
        broken_cache{
            "MissingGpb",
            [](const element &e) { std::filesystem::remove(e.conf_root() + "config/Zone/hq/1"); }},
        broken_cache{
            "AlteredGpb",
            [](const element &e) { write_bytes(e.conf_root() + "config/Zone/hq/1", "HQ ONE"); }},
        broken_cache{"AlteredK",
                     [](const element &e) { write_bytes(knowledge_of(e) + "/subsys.k", "{}"); }},
        broken_cache{
            "MissingK",
            [](const element &e) { std::filesystem::remove(knowledge_of(e) + "/subsys.k"); }},
        broken_cache{"KWithoutSizes",
                     [](const element &e) { install_current(e, without_a_size()); }},
        broken_cache{
            "CutChecksum",
            [](const element &e) { write_bytes(knowledge_of(e) + "/subsys.checksum", "0123\n"); }}),
    [](const auto &instance) { return std::string(instance.param.name); });

TEST(LoadPrevK, FillsTheLastSlotWithoutReadingTheGpbFiles) {
  element e;
  install_last(e, first_configuration());
  ASSERT_EQ(zot_priv_init_load_prev_k(e.handle()), ZOT_OK);
  const zot_slot &last = slot_of(e, ZOT_SLOT_LAST);
  EXPECT_EQ(text_of(last.k), first_configuration().k_text());
  EXPECT_STREQ(last.k->root, e.conf_root().c_str());
  EXPECT_EQ(marked_paths(last.gpbs), (texts{"/Wlan/guest/1=0", "/Zone/hq/1=0", "/Radio/r5/3=0"}));
  EXPECT_EQ(loaded_bytes(last.gpbs), (texts{"", "", ""}));
}

TEST(LoadPrevK, LogsItsSteps) {
  element e;
  install_last(e, first_configuration());
  zot_priv_init_load_prev_k(e.handle());
  constexpr const char *func = "zot_priv_init_load_prev_k";
  EXPECT_TRUE(logged_in_order(
      e.log(),
      {{ZOT_LOG_INFO, k_topics, func, "Init. Load last K from cached storage: Done\n"},
       {ZOT_LOG_INFO, gpb_topics, func, "Init. Load last GPB files from cached storage: Done\n"},
       {ZOT_LOG_INFO, k_topics, func,
        "Init. Load last configuration from cached storage: Done\n"}}));
}

TEST(LoadPrevK, PassesOnThatThereIsNone) {
  element e;
  EXPECT_EQ(zot_priv_init_load_prev_k(e.handle()), ZOT_ERR_NO_FILE);
  EXPECT_EQ(e.handle()->load_flags, ZOT_LOADED_PREV_K);
}

TEST(LoadPrevK, TakesTheAbsenceForNoError) {
  element e;
  e.log().clear();
  zot_priv_init_load_prev_k(e.handle());
  for (const log_record &line : e.log().lines()) {
    EXPECT_EQ(line.level, ZOT_LOG_DEBUG) << line.text;
  }
}

TEST(LoadPrevK, LoadsOnceOnly) {
  element e;
  install_last(e, first_configuration());
  zot_priv_init_load_prev_k(e.handle());
  EXPECT_EQ(zot_priv_init_load_prev_k(e.handle()), ZOT_OK);
  EXPECT_EQ(e.log().count("Init. Load last K from cached storage: Done\n"), 1U);
}

TEST(LoadPrevK, IsNotTriedAgainAfterAFailure) {
  element e;
  zot_priv_init_load_prev_k(e.handle());
  install_last(e, first_configuration());
  EXPECT_EQ(zot_priv_init_load_prev_k(e.handle()), ZOT_OK);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_LAST).k, nullptr);
}

TEST(LoadPrevK, GivesTheKUpWhenItsListCannotBeBuilt) {
  element e;
  install_last(e, without_a_size());
  EXPECT_EQ(zot_priv_init_load_prev_k(e.handle()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_LAST).k, nullptr);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_LAST).gpbs, nullptr);
}

TEST(LoadPrevK, LogsThatTheKWasGivenUp) {
  element e;
  install_last(e, without_a_size());
  zot_priv_init_load_prev_k(e.handle());
  const log_record *const freed = e.log().find_part("Free last K = 0x");
  ASSERT_NE(freed, nullptr) << e.log().dump();
  EXPECT_EQ(freed->level, ZOT_LOG_DEBUG);
  EXPECT_EQ(freed->mask, ZOT_TOPIC_GENERAL);
  EXPECT_EQ(freed->func, "zot_priv_init_load_prev_k");
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_DEBUG, ZOT_TOPIC_GENERAL, "zot_priv_init_load_prev_k",
                               "Free last K: Done\n"}));
}

TEST(LoadTmpK, FillsTheTemporarySlotWithTheKAlone) {
  element e;
  second_configuration().install_k(e.tmp_root(), "subsys.k", "subsys.checksum");
  ASSERT_EQ(zot_priv_init_load_tmp_k(e.handle()), ZOT_OK);
  const zot_slot &temporary = slot_of(e, ZOT_SLOT_TMP);
  EXPECT_EQ(text_of(temporary.k), second_configuration().k_text());
  EXPECT_STREQ(temporary.k->root, e.tmp_root().c_str());
  EXPECT_EQ(temporary.gpbs, nullptr);
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_INFO, k_topics, "zot_priv_init_load_tmp_k",
                               "Init. Load temporary K: Done\n"}));
}

TEST(LoadTmpK, RecordsThatThereIsNone) {
  element e;
  EXPECT_EQ(zot_priv_init_load_tmp_k(e.handle()), ZOT_ERR_NO_FILE);
  EXPECT_EQ(e.error_text(), "[zot_priv_verify_k_file]: No such file or directory");
  EXPECT_EQ(e.handle()->load_flags, ZOT_LOADED_TMP_K);
}

TEST(LoadTmpK, LoadsOnceOnly) {
  element e;
  second_configuration().install_k(e.tmp_root(), "subsys.k", "subsys.checksum");
  zot_priv_init_load_tmp_k(e.handle());
  EXPECT_EQ(zot_priv_init_load_tmp_k(e.handle()), ZOT_OK);
  EXPECT_EQ(e.log().count("Init. Load temporary K: Done\n"), 1U);
}

TEST(LoadTmpK, IsNotTriedAgainAfterAFailure) {
  element e;
  zot_priv_init_load_tmp_k(e.handle());
  second_configuration().install_k(e.tmp_root(), "subsys.k", "subsys.checksum");
  EXPECT_EQ(zot_priv_init_load_tmp_k(e.handle()), ZOT_OK);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_TMP).k, nullptr);
}

TEST(LoadFailK, FillsTheCorruptedSlot) {
  element e;
  install_corrupted(e, second_configuration());
  ASSERT_EQ(zot_priv_init_load_fail_k(e.handle()), ZOT_OK);
  const zot_slot &corrupted = slot_of(e, ZOT_SLOT_CORRUPTED);
  EXPECT_EQ(text_of(corrupted.k), second_configuration().k_text());
  EXPECT_STREQ(corrupted.k->root, e.conf_root().c_str());
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_INFO, k_topics, "zot_priv_init_load_fail_k",
                               "Init. Load corrupted K from cached storage: Done\n"}));
}

TEST(LoadFailK, PassesOnThatThereIsNone) {
  element e;
  EXPECT_EQ(zot_priv_init_load_fail_k(e.handle()), ZOT_ERR_NO_FILE);
  EXPECT_EQ(e.handle()->load_flags, ZOT_LOADED_FAIL_K);
}

TEST(LoadFailK, LoadsOnceOnly) {
  element e;
  install_corrupted(e, second_configuration());
  zot_priv_init_load_fail_k(e.handle());
  EXPECT_EQ(zot_priv_init_load_fail_k(e.handle()), ZOT_OK);
  EXPECT_EQ(e.log().count("Init. Load corrupted K from cached storage: Done\n"), 1U);
}

TEST(LoadFailK, IsNotTriedAgainAfterAFailure) {
  element e;
  zot_priv_init_load_fail_k(e.handle());
  install_corrupted(e, second_configuration());
  EXPECT_EQ(zot_priv_init_load_fail_k(e.handle()), ZOT_OK);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CORRUPTED).k, nullptr);
}

TEST(LoadRetList, ComparesNothingWithNothingOnAnEmptyCache) {
  element e;
  ASSERT_EQ(zot_priv_init_load_ret_gpb_list(e.handle()), ZOT_OK);
  ASSERT_NE(e.handle()->ret.list, nullptr);
  EXPECT_TRUE(marked_paths(e.handle()->ret.list).empty());
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CURRENT).k, nullptr);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_LAST).k, nullptr);
}

TEST(LoadRetList, MarksCurrentAgainstLast) {
  element e;
  install_last(e, first_configuration());
  install_current(e, second_configuration());
  ASSERT_EQ(zot_priv_init_load_ret_gpb_list(e.handle()), ZOT_OK);
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/2=16", "/Wlan/staff/1=8", "/Zone/hq/1=4", "/Radio/r5/3=2"}));
}

TEST(LoadRetList, TakesEverythingForAddedWithoutALastConfiguration) {
  element e;
  install_current(e, first_configuration());
  ASSERT_EQ(zot_priv_init_load_ret_gpb_list(e.handle()), ZOT_OK);
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/1=8", "/Zone/hq/1=8", "/Radio/r5/3=8"}));
}

TEST(LoadRetList, ForgetsACurrentConfigurationThatCannotBeLoaded) {
  element e;
  install_last(e, first_configuration());
  install_current(e, second_configuration());
  write_bytes(e.conf_root() + "config/Wlan/staff/1", "damaged");
  ASSERT_EQ(zot_priv_init_load_ret_gpb_list(e.handle()), ZOT_OK);
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/1=4", "/Zone/hq/1=4", "/Radio/r5/3=4"}));
}

TEST(LoadRetList, ForgetsALastConfigurationThatCannotBeLoaded) {
  element e;
  install_last(e, without_a_size());
  install_current(e, first_configuration());
  ASSERT_EQ(zot_priv_init_load_ret_gpb_list(e.handle()), ZOT_OK);
  EXPECT_EQ(marked_paths(e.handle()->ret.list),
            (texts{"/Wlan/guest/1=8", "/Zone/hq/1=8", "/Radio/r5/3=8"}));
}

TEST(LoadRetList, ReadsItsFilesFromWhereTheCurrentKWasLoaded) {
  element e;
  install_current(e, first_configuration());
  zot_priv_init_load_ret_gpb_list(e.handle());
  EXPECT_EQ(e.handle()->ret.root, slot_of(e, ZOT_SLOT_CURRENT).k->root);
}

TEST(LoadRetList, KeepsARootWithoutACurrentConfiguration) {
  element e;
  zot_priv_init_load_ret_gpb_list(e.handle());
  EXPECT_STREQ(e.handle()->ret.root, e.conf_root().c_str());
}

TEST(LoadRetList, LogsTheEnd) {
  element e;
  zot_priv_init_load_ret_gpb_list(e.handle());
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_INFO, ZOT_TOPIC_GENERAL, "zot_priv_init_load_ret_gpb_list",
                               "Init. Create diff list for cached storage: Done\n"}));
}

TEST(LoadRetList, LoadsOnceOnly) {
  element e;
  zot_priv_init_load_ret_gpb_list(e.handle());
  const zot_list *const before = e.handle()->ret.list;
  EXPECT_EQ(zot_priv_init_load_ret_gpb_list(e.handle()), ZOT_OK);
  EXPECT_EQ(e.handle()->ret.list, before);
  EXPECT_EQ(e.log().count("Init. Create diff list for cached storage: Done\n"), 1U);
}

TEST(LoadRetList, TriesNoLoaderThatHasRun) {
  element e;
  install_last(e, first_configuration());
  install_current(e, second_configuration());
  e.handle()->load_flags = ZOT_LOADED_CONF | ZOT_LOADED_PREV_K;
  ASSERT_EQ(zot_priv_init_load_ret_gpb_list(e.handle()), ZOT_OK);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CURRENT).k, nullptr);
  EXPECT_EQ(slot_of(e, ZOT_SLOT_LAST).k, nullptr);
}

TEST(LoadRetList, RunsNotAtAllWhenItsBitIsSet) {
  element e;
  e.handle()->load_flags = ZOT_LOADED_RET_LIST;
  EXPECT_EQ(zot_priv_init_load_ret_gpb_list(e.handle()), ZOT_OK);
  EXPECT_EQ(e.handle()->ret.list, nullptr);
}

TEST(Loaders, RefuseANullHandle) {
  for (auto *loader : {zot_priv_init_load_conf, zot_priv_init_load_prev_k, zot_priv_init_load_tmp_k,
                       zot_priv_init_load_fail_k, zot_priv_init_load_ret_gpb_list}) {
    EXPECT_EQ(loader(nullptr), ZOT_ERR_NULL_INPUT);
  }
}

int flags_seen = -1;

int reader_that_notes_flags(zot_ctx *, zot_k *, const char *, int flags) {
  flags_seen = flags;
  return ZOT_OK;
}

int reader_that_fails(zot_ctx *, zot_k *, const char *, int) {
  return ZOT_ERR_CORRUPTED;
}

TEST(LoadK, RefusesAMissingTarget) {
  element e;
  EXPECT_EQ(__zot_priv_init_load_k_f(e.handle(), reader_that_fails, nullptr, "/root", 0),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(e.error_text(), "[__zot_priv_init_load_k_f]: null input target k");
}

TEST(LoadK, PassesOnTheStatusOfTheReader) {
  element e;
  zot_k *target = nullptr;
  EXPECT_EQ(__zot_priv_init_load_k_f(e.handle(), reader_that_fails, &target, "/root", 0),
            ZOT_ERR_CORRUPTED);
  EXPECT_EQ(target, nullptr);
}

TEST(LoadK, HandsTheFlagsToTheReader) {
  element e;
  zot_k *target = nullptr;
  ASSERT_EQ(_zot_priv_init_load_k_f(e.handle(), reader_that_notes_flags, &target, "/root",
                                    ZOT_READ_K_OPTIONAL),
            ZOT_OK);
  EXPECT_EQ(flags_seen, ZOT_READ_K_OPTIONAL);
  zot_priv_set_k(e.handle(), ZOT_SLOT_TMP, target);
}

TEST(LoadK, KeepsACopyOfTheRoot) {
  element e;
  zot_k *target = nullptr;
  std::string root = "/some/root";
  ASSERT_EQ(__zot_priv_init_load_k_f(e.handle(), reader_that_notes_flags, &target, root.c_str(), 0),
            ZOT_OK);
  zot_priv_set_k(e.handle(), ZOT_SLOT_TMP, target);
  root = "changed";
  EXPECT_STREQ(target->root, "/some/root");
}

TEST(LoadK, RecordsSuccess) {
  element e;
  zot_k *target = nullptr;
  zot_priv_err_set_errno(e.handle(), ZOT_ERR_TIMEOUT);
  ASSERT_EQ(__zot_priv_init_load_k_f(e.handle(), reader_that_notes_flags, &target, "/root", 0),
            ZOT_OK);
  zot_priv_set_k(e.handle(), ZOT_SLOT_TMP, target);
  EXPECT_EQ(zot_util_get_err(e.handle()), ZOT_OK);
  EXPECT_EQ(e.error_text(), "Success");
}

TEST(LoadKDeathTest, AbortsWithoutFlags) {
  element e;
  zot_k *target = nullptr;
  EXPECT_DEATH(_zot_priv_init_load_k_f(e.handle(), reader_that_fails, &target, "/root", 0),
               "src/zot_priv.*_zot_priv_init_load_k_f.*flags != 0");
}

}  // namespace
