// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/element.hpp"
#include "tests/support/publication.hpp"
#include "tests/unit/bare_handle.hpp"
#include "zot_conf.h"

namespace {

using zot::test::bare_handle;

TEST(UtilGetSubIdx, IsTheIndexOfTheHandle) {
  bare_handle handle;
  std::strcpy(handle->sub_idx, "aa:bb");
  EXPECT_STREQ(zot_util_get_sub_idx(handle.get()), "aa:bb");
}

TEST(UtilCat2Str, NamesACategory) {
  EXPECT_STREQ(zot_util_cat2str(18), "Wlan");
}

TEST(UtilCat2Str, KnowsNoNameOutsideTheTable) {
  EXPECT_EQ(zot_util_cat2str(80), nullptr);
  EXPECT_EQ(zot_util_cat2str(-1), nullptr);
}

struct waiting_case {
  uint32_t state;
  bool is_new;
};

class UtilIsNewConf : public testing::TestWithParam<waiting_case> {};

TEST_P(UtilIsNewConf, TellsWhetherAVerdictIsDue) {
  bare_handle handle;
  handle->stat.state = GetParam().state;
  EXPECT_EQ(zot_util_is_new_conf(handle.get()), GetParam().is_new);
}

INSTANTIATE_TEST_SUITE_P(
    EveryState, UtilIsNewConf,
    testing::Values(waiting_case{0, false}, waiting_case{ZOT_CYCLE_NEW_CONF, true},
                    waiting_case{ZOT_CYCLE_SAME_K, false},
                    waiting_case{ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_COMMIT, false},
                    waiting_case{ZOT_CYCLE_NEW_CONF | ZOT_CYCLE_DONE_ROLL_BACK, false}));

TEST(UtilIsNewConfArguments, NoHandleHasNothingNew) {
  EXPECT_FALSE(zot_util_is_new_conf(nullptr));
}

TEST(UtilIsNewConfArguments, KeepsTheLastStatus) {
  bare_handle handle;
  zot_priv_err_set_errno(handle.get(), ZOT_ERR_TIMEOUT);
  static_cast<void>(zot_util_is_new_conf(handle.get()));
  EXPECT_EQ(handle->err, ZOT_ERR_TIMEOUT);
}

TEST(UtilGetConfStat, CopiesStateAndBytes) {
  bare_handle handle;
  handle->stat = {ZOT_CYCLE_SAME_K, 0, 0x100000001, 2};
  zot_core_stat stat{};
  EXPECT_EQ(zot_util_get_conf_stat(handle.get(), &stat), ZOT_OK);
  EXPECT_EQ(stat.state, static_cast<uint32_t>(ZOT_CYCLE_SAME_K));
  EXPECT_EQ(stat.bytes_written, 0x100000001U);
  EXPECT_EQ(stat.bytes_read, 2U);
}

TEST(UtilGetConfStat, NeedsAHandleAndARecord) {
  bare_handle handle;
  zot_core_stat stat{1, 0, 3, 4};
  EXPECT_EQ(zot_util_get_conf_stat(nullptr, &stat), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(stat.bytes_read, 4U);
  EXPECT_EQ(zot_util_get_conf_stat(handle.get(), nullptr), ZOT_ERR_NULL_INPUT);
}

TEST(UtilGetConfStat, KeepsTheLastStatus) {
  bare_handle handle;
  zot_priv_err_set_errno(handle.get(), ZOT_ERR_TIMEOUT);
  zot_core_stat stat{};
  EXPECT_EQ(zot_util_get_conf_stat(handle.get(), &stat), ZOT_OK);
  EXPECT_EQ(zot_util_get_conf_stat(handle.get(), nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(handle->err, ZOT_ERR_TIMEOUT);
}

struct meta_case {
  int which;
  uint32_t slot;
  const char *missing;
};

class KMeta : public testing::TestWithParam<meta_case> {
 protected:
  KMeta() {
    std::strcpy(k_.meta.firmware_version, "7.1");
    std::strcpy(k_.meta.config_id, "config");
    std::strcpy(k_.meta.cluster_id, "cluster");
    handle_->stat.state = ZOT_CYCLE_NEW_CONF;
    // The state after loaders that found nothing.
    handle_->load_flags = ZOT_LOADED_CONF | ZOT_LOADED_CONF_GPB | ZOT_LOADED_PREV_K;
  }

  bare_handle handle_;
  zot_k k_{};
};

TEST_P(KMeta, IsCopied) {
  handle_->slot[GetParam().slot].k = &k_;
  zot_k_meta meta{};
  EXPECT_EQ(zot_util_get_k_meta(handle_.get(), &meta, GetParam().which), 0);
  EXPECT_EQ(std::memcmp(&meta, &k_.meta, sizeof meta), 0);
  EXPECT_STREQ(handle_->err_str, "Success");
  EXPECT_EQ(handle_->err, 0);
}

TEST_P(KMeta, CopyIsLogged) {
  handle_->slot[GetParam().slot].k = &k_;
  zot_k_meta meta{};
  zot_util_get_k_meta(handle_.get(), &meta, GetParam().which);
  const auto *line = handle_.log().find("Get meta of K: Done\n");
  ASSERT_NE(line, nullptr) << handle_.log().dump();
  EXPECT_EQ(line->level, static_cast<uint32_t>(ZOT_LOG_DEBUG));
  EXPECT_EQ(line->mask, static_cast<uint32_t>(ZOT_TOPIC_GENERAL));
  EXPECT_EQ(line->func, "zot_util_get_k_meta");
}

TEST_P(KMeta, OfAnAbsentKIsNotCached) {
  zot_k_meta meta{};
  EXPECT_EQ(zot_util_get_k_meta(handle_.get(), &meta, GetParam().which), -12);
  EXPECT_STREQ(handle_->err_str, GetParam().missing);
}

TEST_P(KMeta, IsNotCopiedOntoItself) {
  handle_->slot[GetParam().slot].k = &k_;
  EXPECT_EQ(zot_util_get_k_meta(handle_.get(), &k_.meta, GetParam().which), -1);
  EXPECT_STREQ(handle_->err_str, "[zot_util_get_k_meta]: dst k is as same as src");
}

INSTANTIATE_TEST_SUITE_P(EveryK, KMeta,
                         testing::Values(meta_case{0, 2, "No cached new K."},
                                         meta_case{1, 0, "No cached current K."},
                                         meta_case{2, 1, "No cached last K."}));

TEST(KMetaNew, IsNotReadyBeforeAGet) {
  bare_handle handle;
  zot_k_meta meta{};
  EXPECT_EQ(zot_util_get_k_meta(handle.get(), &meta, ZOT_K_NEW), -14);
  EXPECT_STREQ(handle->err_str, "Should run zot_conf_get() first");
}

TEST(KMetaNew, IsReadyWhenTheGetBroughtNothingNew) {
  bare_handle handle;
  zot_k k{};
  handle->slot[ZOT_SLOT_TMP].k = &k;
  handle->stat.state = ZOT_CYCLE_SAME_K;
  zot_k_meta meta{};
  EXPECT_EQ(zot_util_get_k_meta(handle.get(), &meta, ZOT_K_NEW), 0);
}

class KMetaFromTheCache : public testing::Test {
 protected:
  void install(const char *k_name, const char *checksum_name) {
    zot::test::publication().config_id("cached").install_k(e_.conf_root() + "knowledge", k_name,
                                                           checksum_name);
  }
  std::string config_id(int which) {
    zot_k_meta meta{};
    return zot_util_get_k_meta(e_.handle(), &meta, which) == ZOT_OK ? meta.config_id : "none";
  }

  zot::test::element e_;
};

TEST_F(KMetaFromTheCache, OfTheCurrentKIsLoaded) {
  install("subsys.k", "subsys.checksum");
  EXPECT_EQ(config_id(ZOT_K_CURRENT), "cached");
}

TEST_F(KMetaFromTheCache, OfTheCurrentKIsLoadedUntilItsFilesAre) {
  install("subsys.k", "subsys.checksum");
  e_.handle()->load_flags = ZOT_LOADED_CONF;
  EXPECT_EQ(config_id(ZOT_K_CURRENT), "cached");
}

TEST_F(KMetaFromTheCache, OfTheLastKIsLoaded) {
  install("prev_subsys.k", "prev_subsys.checksum");
  EXPECT_EQ(config_id(ZOT_K_LAST), "cached");
}

TEST(KMetaArguments, RefuseAnotherK) {
  bare_handle handle;
  zot_k_meta meta{};
  EXPECT_EQ(zot_util_get_k_meta(handle.get(), &meta, 3), -5);
  EXPECT_EQ(zot_util_get_k_meta(handle.get(), &meta, -1), -5);
  EXPECT_EQ(handle->err, -5);
}

TEST(KMetaArguments, NeedADestination) {
  bare_handle handle;
  EXPECT_EQ(zot_util_get_k_meta(handle.get(), nullptr, ZOT_K_CURRENT), -9);
  EXPECT_STREQ(handle->err_str, "NULL input");
}

TEST(KMetaArguments, NeedAHandle) {
  zot_k_meta meta{};
  EXPECT_EQ(zot_util_get_k_meta(nullptr, &meta, ZOT_K_CURRENT), -9);
}

TEST(KMetaArgumentsDeathTest, NeitherHandleNorDestinationAborts) {
  EXPECT_DEATH(zot_util_get_k_meta(nullptr, nullptr, ZOT_K_CURRENT), "reg_data != ");
}

TEST(UtilInitConfParm, FillsTheDefaults) {
  zot_parm_all parm;
  std::memset(&parm, 0x5a, sizeof parm);
  zot_util_init_conf_parm(&parm);
  EXPECT_EQ(parm.timeout, 5U);
  EXPECT_EQ(parm.timeout_gpb, 30U);
  EXPECT_EQ(parm.log_ctl.facility, 0x7fU);
  EXPECT_EQ(parm.log_ctl.dst, 2U);
}

TEST(UtilInitDeathTest, TakesNoRecord) {
  const auto fill_nothing = [] {
    zot_util_init_conf_parm(nullptr);
    zot_util_init_log_ctl(nullptr);
    zot_core_reset_stat(nullptr);
    std::exit(0);
  };
  EXPECT_EXIT(fill_nothing(), testing::ExitedWithCode(0), "");
}

}  // namespace
