// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "tests/unit/zot_priv/cycle/paths_fixture.hpp"

namespace {

using zot::test::env_guard;

class SubSystem : public zot::test::Paths {};

TEST_F(SubSystem, ConfRootFollowsItsPrefix) {
  conf_prefix_.set("/mnt");
  EXPECT_EQ(zot_sub_get_conf_root(handle_.get(), buf_, sizeof buf_), buf_);
  EXPECT_STREQ(buf_, "/mnt/writable/zot/");
  EXPECT_EQ(handle_->dev_mode, 0U);
}

TEST_F(SubSystem, TmpRootFollowsItsPrefix) {
  tmp_prefix_.set("/run");
  EXPECT_EQ(zot_sub_get_tmp_root(handle_.get(), buf_, sizeof buf_), buf_);
  EXPECT_STREQ(buf_, "/run/tmp/zot");
}

TEST_F(SubSystem, EmptyPrefixesAreUnset) {
  conf_prefix_.set("");
  tmp_prefix_.set("");
  dev_path_.set("");
  EXPECT_STREQ(zot_sub_get_conf_root(handle_.get(), buf_, sizeof buf_), "/writable/zot/");
  EXPECT_STREQ(zot_sub_get_tmp_root(handle_.get(), buf_, sizeof buf_), "/tmp/zot");
  EXPECT_EQ(handle_->dev_mode, 0U);
}

TEST_F(SubSystem, DevPathWinsUnchanged) {
  dev_path_.set("/some/dev path");
  EXPECT_EQ(zot_sub_get_conf_root(handle_.get(), buf_, sizeof buf_), buf_);
  EXPECT_STREQ(buf_, "/some/dev path");
  EXPECT_EQ(handle_->dev_mode, 1U);
}

TEST_F(SubSystem, GettersNeedHandleAndBuffer) {
  EXPECT_EQ(zot_sub_get_conf_root(nullptr, buf_, sizeof buf_), nullptr);
  EXPECT_EQ(zot_sub_get_conf_root(handle_.get(), nullptr, 1), nullptr);
  EXPECT_EQ(zot_sub_get_tmp_root(nullptr, buf_, sizeof buf_), nullptr);
  EXPECT_EQ(zot_sub_get_tmp_root(handle_.get(), nullptr, 1), nullptr);
}

struct port_case {
  std::optional<std::string> value;
  uint32_t port;
};

class RemotePort : public testing::TestWithParam<port_case> {};

TEST_P(RemotePort, IsReadFromTheEnvironment) {
  const env_guard variable("ZOT_REMOTE_PORT", GetParam().value);
  EXPECT_EQ(zot_sub_get_remote_port(), GetParam().port);
}

INSTANTIATE_TEST_SUITE_P(Table, RemotePort,
                         testing::Values(port_case{std::nullopt, 8087}, port_case{"0", 8087},
                                         port_case{"-5", 8087}, port_case{"abc", 8087},
                                         port_case{"", 8087}, port_case{"9000", 9000},
                                         port_case{"9000x", 9000}, port_case{"1", 1},
                                         port_case{"99999999999", 2147483647}));

TEST_F(SubSystem, NameIsUpperCaseAndCutTo17) {
  std::strcpy(handle_->sub_idx, "aa:bb:cc:dd:ee:ff:00");
  handle_->sub_data.len = 17;
  EXPECT_EQ(zot_sub_init_data(handle_.get()), 0);
  EXPECT_STREQ(handle_->sub_data.name, "AA:BB:CC:DD:EE:FF");
  EXPECT_EQ(handle_->sub_idx_len, 17U);
}

TEST_F(SubSystem, ValueAbove17IsOutOfRange) {
  handle_->sub_data.len = 18;
  EXPECT_EQ(zot_sub_init_data(handle_.get()), -10);
  EXPECT_EQ(handle_->err, -10);
  EXPECT_STREQ(handle_->err_str, "Generic Error");
  EXPECT_EQ(handle_->sub_idx_len, 0U);
}

TEST_F(SubSystem, CallsNeedTheirArgument) {
  EXPECT_EQ(zot_sub_init_data(nullptr), -9);
  EXPECT_EQ(zot_sub_init_fns(nullptr), -9);
  EXPECT_EQ(zot_sub_init_parm(nullptr), -9);
  EXPECT_EQ(zot_priv_init_sub_sys(nullptr), -9);
}

TEST_F(SubSystem, OperationsAreInstalled) {
  handle_->fns = zot_sub_fns{};
  EXPECT_EQ(zot_sub_init_fns(handle_.get()), 0);
  EXPECT_EQ(handle_->fns.commit_gpb, nullptr);
  EXPECT_EQ(handle_->fns.get_conf_root, zot_sub_get_conf_root);
  EXPECT_EQ(handle_->fns.get_tmp_root, zot_sub_get_tmp_root);
  EXPECT_EQ(handle_->fns.download_k, ap_download_k);
  EXPECT_EQ(handle_->fns.download_gpb, ap_download_gpb);
}

TEST_F(SubSystem, TimeoutsAreFiveAndThirty) {
  zot_parm_all parm{};
  EXPECT_EQ(zot_sub_init_parm(&parm), 0);
  EXPECT_EQ(parm.timeout, 5U);
  EXPECT_EQ(parm.timeout_gpb, 30U);
}

TEST_F(SubSystem, SetUpFillsTheHandle) {
  handle_->fns = zot_sub_fns{};
  std::strcpy(handle_->sub_idx, "aabb");
  handle_->sub_data.len = 4;
  EXPECT_EQ(zot_priv_init_sub_sys(handle_.get()), 0);
  EXPECT_STREQ(handle_->sub_data.name, "AABB");
  EXPECT_EQ(handle_->fns.download_k, ap_download_k);
  EXPECT_TRUE(std::filesystem::is_directory(dir_ / "conf/writable/zot/knowledge"));
}

TEST_F(SubSystem, SetUpStopsAtTheFirstFailure) {
  handle_->fns = zot_sub_fns{};
  handle_->sub_data.len = 18;
  EXPECT_EQ(zot_priv_init_sub_sys(handle_.get()), -10);
  EXPECT_EQ(handle_->fns.get_conf_root, nullptr);
  EXPECT_FALSE(zot::test::exists(dir_ / "conf"));
}

}  // namespace
