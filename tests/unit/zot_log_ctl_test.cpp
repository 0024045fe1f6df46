// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "tests/unit/bare_handle.hpp"
#include "zot_conf.h"

namespace {

using zot::test::bare_handle;

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

}  // namespace
