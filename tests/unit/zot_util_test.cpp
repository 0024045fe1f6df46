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

TEST(UtilGetErr, IsTheStatusOfTheHandle) {
  bare_handle handle;
  handle->err = -14;
  EXPECT_EQ(zot_util_get_err(handle.get()), -14);
}

TEST(UtilGetErr, IsWrongInputWithoutAHandle) {
  EXPECT_EQ(zot_util_get_err(nullptr), -5);
}

TEST(UtilGetErrStr, IsTheTextOfTheHandle) {
  bare_handle handle;
  zot_priv_err_set_err_str2(handle.get(), -1, "f", 1, "what happened");
  EXPECT_STREQ(zot_util_get_err_str(handle.get()), "what happened");
}

TEST(UtilGetSubIdx, IsTheIndexOfTheHandle) {
  bare_handle handle;
  std::strcpy(handle->sub_idx, "aa:bb");
  EXPECT_STREQ(zot_util_get_sub_idx(handle.get()), "aa:bb");
}

TEST(UtilIsErr, IsTrueBelowZeroOnly) {
  EXPECT_TRUE(zot_util_is_err(-1));
  EXPECT_TRUE(zot_util_is_err(-16));
  EXPECT_FALSE(zot_util_is_err(0));
  EXPECT_FALSE(zot_util_is_err(2));
}

TEST(UtilCat2Str, NamesACategory) {
  EXPECT_STREQ(zot_util_cat2str(18), "Wlan");
}

TEST(UtilCat2Str, KnowsNoNameOutsideTheTable) {
  EXPECT_EQ(zot_util_cat2str(80), nullptr);
  EXPECT_EQ(zot_util_cat2str(-1), nullptr);
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
    // As after loaders that found nothing.
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

TEST(UtilInitLogCtl, FillsTheDefaults) {
  zot_log_ctl ctl;
  std::memset(&ctl, 0x5a, sizeof ctl);
  zot_util_init_log_ctl(&ctl);
  EXPECT_EQ(ctl.facility, 0x7fU);
  EXPECT_EQ(ctl.option, 1U);
  EXPECT_EQ(ctl.level, 1U);
  EXPECT_EQ(ctl.dst, 2U);
  EXPECT_EQ(ctl.fp, nullptr);
  EXPECT_EQ(ctl.path, nullptr);
  EXPECT_EQ(ctl.cb, nullptr);
  EXPECT_EQ(ctl.cb_arg, nullptr);
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

class LogCtlFiller : public testing::Test {
 protected:
  LogCtlFiller() { zot_util_init_log_ctl(&ctl_); }
  void expect_unchanged() {
    zot_log_ctl defaults{};
    zot_util_init_log_ctl(&defaults);
    EXPECT_EQ(std::memcmp(&ctl_, &defaults, sizeof defaults), 0);
  }

  zot_log_ctl ctl_{};
};

TEST_F(LogCtlFiller, StoresAStream) {
  EXPECT_EQ(zot_util_set_log_ctl_dst_fp(&ctl_, stdout), 0);
  EXPECT_EQ(ctl_.dst, 3U);
  EXPECT_EQ(ctl_.fp, stdout);
}

TEST_F(LogCtlFiller, RefusesAMissingStream) {
  EXPECT_EQ(zot_util_set_log_ctl_dst_fp(&ctl_, nullptr), -1);
  expect_unchanged();
  EXPECT_EQ(zot_util_set_log_ctl_dst_fp(nullptr, stdout), -1);
}

TEST_F(LogCtlFiller, StoresThePathPointer) {
  const std::string path = "/var/log/zot";
  EXPECT_EQ(zot_util_set_log_ctl_dst_path(&ctl_, path.c_str()), 0);
  EXPECT_EQ(ctl_.dst, 4U);
  EXPECT_EQ(ctl_.path, path.c_str());
}

TEST_F(LogCtlFiller, RefusesAnEmptyPath) {
  EXPECT_EQ(zot_util_set_log_ctl_dst_path(&ctl_, ""), -1);
  expect_unchanged();
}

TEST_F(LogCtlFiller, RefusesAMissingPath) {
  EXPECT_EQ(zot_util_set_log_ctl_dst_path(&ctl_, nullptr), -1);
  expect_unchanged();
  EXPECT_EQ(zot_util_set_log_ctl_dst_path(nullptr, "/var/log/zot"), -1);
}

int ignore_line(zot_log_ctx *, void *, const char *) {
  return 0;
}

TEST_F(LogCtlFiller, StoresACallback) {
  EXPECT_EQ(zot_util_set_log_ctl_dst_cb_func(&ctl_, ignore_line, this), 0);
  EXPECT_EQ(ctl_.dst, 5U);
  EXPECT_EQ(ctl_.cb, ignore_line);
  EXPECT_EQ(ctl_.cb_arg, this);
}

TEST_F(LogCtlFiller, TakesACallbackWithoutAnArgument) {
  EXPECT_EQ(zot_util_set_log_ctl_dst_cb_func(&ctl_, ignore_line, nullptr), 0);
}

TEST_F(LogCtlFiller, RefusesAMissingCallback) {
  EXPECT_EQ(zot_util_set_log_ctl_dst_cb_func(&ctl_, nullptr, this), -1);
  expect_unchanged();
  EXPECT_EQ(zot_util_set_log_ctl_dst_cb_func(nullptr, ignore_line, this), -1);
}

TEST(UtilCallSite, IsTheMessageBeingDelivered) {
  bare_handle handle;
  handle->log_ctx.site = {ZOT_LOG_INFO, 0x12, 99, "func"};
  const zot_log_site site = zot_util_log_cb_func_get_conf_stat(&handle->log_ctx);
  EXPECT_EQ(site.level, 2U);
  EXPECT_EQ(site.mask, 0x12U);
  EXPECT_EQ(site.line, 99);
  EXPECT_STREQ(site.func, "func");
}

TEST(UtilCallSite, IsEmptyWithoutAContext) {
  const zot_log_site site = zot_util_log_cb_func_get_conf_stat(nullptr);
  EXPECT_EQ(site.level, 0U);
  EXPECT_EQ(site.mask, 0U);
  EXPECT_EQ(site.line, 0);
  EXPECT_EQ(site.func, nullptr);
}

TEST(Catset, SetAllSetsTheEightyCategories) {
  zot_catset catset{};
  EXPECT_EQ(zot_catset_set_all(&catset), 0);
  zot_catset wanted{};
  wanted.word[0] = 0xffffffffU;
  wanted.word[1] = 0xffffffffU;
  wanted.word[2] = 0x0000ffffU;
  EXPECT_EQ(std::memcmp(&catset, &wanted, sizeof wanted), 0);
}

TEST(Catset, SetAllKeepsWhatIsSet) {
  zot_catset catset{};
  catset.word[2] = 0x80000000U;
  catset.word[31] = 1;
  zot_catset_set_all(&catset);
  EXPECT_EQ(catset.word[2], 0x8000ffffU);
  EXPECT_EQ(catset.word[31], 1U);
}

TEST(Catset, SetAllNeedsASet) {
  EXPECT_EQ(zot_catset_set_all(nullptr), -9);
}

class CatsetMember : public testing::TestWithParam<std::pair<int, std::pair<int, uint32_t>>> {};

TEST_P(CatsetMember, IsOneBit) {
  const auto &[category, place] = GetParam();
  zot_catset catset{};
  EXPECT_FALSE(zot_catset_has(&catset, category));
  EXPECT_EQ(zot_catset_add(&catset, category), 0);
  EXPECT_EQ(catset.word[place.first], place.second);
  EXPECT_TRUE(zot_catset_has(&catset, category));
}

INSTANTIATE_TEST_SUITE_P(Places, CatsetMember,
                         testing::Values(std::pair{0, std::pair{0, 1U}},
                                         std::pair{18, std::pair{0, 1U << 18}},
                                         std::pair{31, std::pair{0, 1U << 31}},
                                         std::pair{32, std::pair{1, 1U}},
                                         std::pair{79, std::pair{2, 1U << 15}}));

class CatsetStranger : public testing::TestWithParam<int> {};

TEST_P(CatsetStranger, IsRefused) {
  zot_catset catset{};
  EXPECT_EQ(zot_catset_add(&catset, GetParam()), -5);
  const zot_catset empty{};
  EXPECT_EQ(std::memcmp(&catset, &empty, sizeof empty), 0);
  std::memset(&catset, 0xff, sizeof catset);
  EXPECT_FALSE(zot_catset_has(&catset, GetParam()));
}

INSTANTIATE_TEST_SUITE_P(NoCategory, CatsetStranger, testing::Values(-1, 80, 1023, 1024));

TEST(Catset, AddAndHasNeedASet) {
  EXPECT_EQ(zot_catset_add(nullptr, 1), -9);
  EXPECT_FALSE(zot_catset_has(nullptr, 1));
}

TEST(CoreStat, IsZeroedAsAWhole) {
  zot_core_stat stat{1, 2, 3, 4};
  zot_core_reset_stat(&stat);
  const zot_core_stat zero{};
  EXPECT_EQ(std::memcmp(&stat, &zero, sizeof zero), 0);
}

}  // namespace
