// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "tests/support/element.hpp"
#include "tests/support/env.hpp"
#include "tests/support/files.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/unit/captured_syslog.hpp"
#include "zot_conf.h"

namespace {

using zot::test::env_guard;
using zot::test::handle_owner;
using zot::test::log_capture;
using zot::test::log_record;
using zot::test::read_bytes;
using zot::test::syslog_messages;
using zot::test::syslog_openings;
using zot::test::temp_dir;
using zot::test::write_bytes;

class Creation : public testing::Test {
 protected:
  zot_parm_all parm() {
    zot_parm_all value{};
    zot_util_init_conf_parm(&value);
    value.log_ctl = log_.ctl();
    return value;
  }
  handle_owner create(const char *subsys_id, const char *sub_idx, size_t id_len) {
    return handle_owner(zot_conf_init_args(subsys_id, sub_idx, id_len, parm()));
  }

  temp_dir dir_;
  env_guard conf_prefix_{"ZOT_PREFIX_CONF_ROOT", dir_ / "conf"};
  env_guard tmp_prefix_{"ZOT_PREFIX_TMP_ROOT", dir_ / "scratch"};
  env_guard dev_path_{"ZOT_DEV_PATH", std::nullopt};
  log_capture log_;
};

TEST_F(Creation, WithoutASubSystemIdIsAnAccessPoint) {
  const handle_owner handle = create(nullptr, "aabb", 4);
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(handle->subsys_id, "AP");
}

TEST_F(Creation, KeepsTheSubSystemId) {
  const handle_owner handle = create("DP", "aabb", 4);
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(handle->subsys_id, "DP");
}

TEST_F(Creation, TakesASubSystemIdOf63Bytes) {
  const std::string id(63, 'S');
  const handle_owner handle = create(id.c_str(), "aabb", 4);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->subsys_id, id);
}

TEST_F(Creation, RefusesASubSystemIdOf64Bytes) {
  EXPECT_EQ(create(std::string(64, 'S').c_str(), "aabb", 4), nullptr);
  const log_record *line = log_.find("sub-system ID:64 is too long:\n");
  ASSERT_NE(line, nullptr) << log_.dump();
  EXPECT_EQ(line->level, static_cast<uint32_t>(ZOT_LOG_ERROR));
}

TEST_F(Creation, TakesAnIndexOf52Bytes) {
  const std::string index(52, 'i');
  const handle_owner handle = create("AP", index.c_str(), index.size());
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->sub_idx, index);
}

TEST_F(Creation, RefusesAnIndexOf53Bytes) {
  EXPECT_EQ(create("AP", std::string(53, 'i').c_str(), 53), nullptr);
  const log_record *line = log_.find("id_len:53 is too long\n");
  ASSERT_NE(line, nullptr) << log_.dump();
  EXPECT_EQ(line->level, static_cast<uint32_t>(ZOT_LOG_ERROR));
  EXPECT_EQ(line->mask, 1U);
  EXPECT_EQ(line->func, "zot_conf_init_args");
}

TEST_F(Creation, UsesNoMoreOfTheIndexThanTold) {
  const handle_owner handle = create("AP", "aabbcc", 3);
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(handle->sub_idx, "aab");
}

TEST_F(Creation, StopsTheIndexAtItsEnd) {
  const handle_owner handle = create("AP", "aabb\0rest", 9);
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(handle->sub_idx, "aabb");
  EXPECT_EQ(handle->sub_idx_len, 4U);
}

TEST_F(Creation, TakesNoIndexAsAnEmptyOne) {
  const handle_owner handle = create("AP", nullptr, 12);
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(handle->sub_idx, "");
  EXPECT_EQ(handle->sub_idx_len, 0U);
}

TEST_F(Creation, GivesTheAdapterTheFirst17Bytes) {
  const handle_owner handle = create("AP", "aa:bb:cc:dd:ee:ff:00", 20);
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(handle->sub_data.name, "AA:BB:CC:DD:EE:FF");
  EXPECT_EQ(handle->sub_data.len, 17U);
  EXPECT_EQ(handle->sub_idx_len, 17U);
  EXPECT_STREQ(handle->sub_idx, "aa:bb:cc:dd:ee:ff:00");
}

TEST_F(Creation, InstallsTheParameters) {
  zot_parm_all wanted = parm();
  wanted.timeout = 7;
  wanted.timeout_gpb = 8;
  const handle_owner handle(zot_conf_init_args("AP", "aabb", 4, wanted));
  ASSERT_NE(handle, nullptr);
  ASSERT_NE(handle->parm, nullptr);
  EXPECT_EQ(std::memcmp(&handle->parm->all, &wanted, sizeof wanted), 0);
  EXPECT_EQ(handle->parm->handle, handle.get());
  EXPECT_EQ(handle->log_ctx.ctl, &handle->parm->all.log_ctl);
}

TEST_F(Creation, TellsItsStepsInOrder) {
  const handle_owner handle = create("AP", "aabb", 4);
  ASSERT_NE(handle, nullptr);
  const auto start = log_.index_of("Start init zot lib.\n");
  const auto log_done = log_.index_of("init log setting: Done\n");
  const auto paths = log_.index_of("conf path = \"" + (dir_ / "conf/writable/zot/") + "\"\n");
  const auto done = log_.index_of("Init. zot lib: Done\n");
  ASSERT_TRUE(start && log_done && paths && done) << log_.dump();
  EXPECT_LT(*start, *log_done);
  EXPECT_LT(*log_done, *paths);
  EXPECT_LT(*paths, *done);
}

TEST_F(Creation, TellsItsStepsAsInformation) {
  const handle_owner handle = create("AP", "aabb", 4);
  ASSERT_NE(handle, nullptr);
  for (const char *text :
       {"Start init zot lib.\n", "init log setting: Done\n", "Init. zot lib: Done\n"}) {
    const log_record *line = log_.find(text);
    ASSERT_NE(line, nullptr) << text;
    EXPECT_EQ(line->level, static_cast<uint32_t>(ZOT_LOG_INFO)) << text;
    EXPECT_EQ(line->mask, 1U) << text;
    EXPECT_EQ(line->func, "zot_conf_init_args") << text;
  }
}

TEST_F(Creation, ObeysTheLogLevelFromTheFirstMessage) {
  zot_parm_all quiet = parm();
  quiet.log_ctl.level = ZOT_LOG_WARN;
  const handle_owner handle(zot_conf_init_args("AP", "aabb", 4, quiet));
  ASSERT_NE(handle, nullptr);
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(Creation, WritesAllMessagesToALogFile) {
  zot_parm_all wanted = parm();
  wanted.log_ctl.level = ZOT_LOG_INFO;
  const std::string path = dir_ / "log";
  zot_util_set_log_ctl_dst_path(&wanted.log_ctl, path.c_str());
  handle_owner handle(zot_conf_init_args("AP", "aabb", 4, wanted));
  ASSERT_NE(handle, nullptr);
  handle.reset();
  const std::string text = read_bytes(path);
  EXPECT_NE(text.find("Start init zot lib.\n"), std::string::npos) << text;
  EXPECT_NE(text.find("Init. zot lib: Done\n"), std::string::npos) << text;
}

// Catches anything that a handle logs while its settings are incomplete.
class other_destinations {
 public:
  other_destinations() { testing::internal::CaptureStderr(); }
  void expect_nothing() const {
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(syslog_messages.size(), messages_);
    EXPECT_EQ(syslog_openings.size(), openings_);
  }

 private:
  std::size_t messages_ = syslog_messages.size();
  std::size_t openings_ = syslog_openings.size();
};

TEST_F(Creation, LogsToTheCallbackAlone) {
  const other_destinations others;
  const handle_owner handle = create("AP", "aabb", 4);
  others.expect_nothing();
  EXPECT_NE(handle, nullptr);
  EXPECT_EQ(log_.lines().front().text, "Start init zot lib.\n") << log_.dump();
}

TEST_F(Creation, LogsToTheFileAlone) {
  zot_parm_all settings = parm();
  const std::string path = dir_ / "log";
  zot_util_set_log_ctl_dst_path(&settings.log_ctl, path.c_str());
  const other_destinations others;
  const handle_owner handle(zot_conf_init_args("AP", "aabb", 4, settings));
  others.expect_nothing();
  EXPECT_NE(handle, nullptr);
  EXPECT_NE(handle->log_ctx.path_fp, nullptr);
}

TEST_F(Creation, LogsToTheStreamAlone) {
  zot_parm_all settings = parm();
  FILE *const stream = std::tmpfile();
  zot_util_set_log_ctl_dst_fp(&settings.log_ctl, stream);
  const other_destinations others;
  handle_owner handle(zot_conf_init_args("AP", "aabb", 4, settings));
  others.expect_nothing();
  EXPECT_NE(handle, nullptr);
  EXPECT_GT(std::ftell(stream), 0);
  handle.reset();
  std::fclose(stream);
}

TEST_F(Creation, RefusesUnusableLogSettings) {
  zot_parm_all wanted = parm();
  wanted.log_ctl.level = 9;
  EXPECT_EQ(zot_conf_init_args("AP", "aabb", 4, wanted), nullptr);
  const log_record *line =
      log_.find("init set log option: Failed:[zot_parm_set_log_level] unknown options: 9\n");
  ASSERT_NE(line, nullptr) << log_.dump();
  EXPECT_EQ(line->level, static_cast<uint32_t>(ZOT_LOG_ERROR));
}

TEST_F(Creation, FailsWithoutItsDirectories) {
  write_bytes(dir_ / "file", "no directory");
  conf_prefix_.set(dir_ / "file");
  EXPECT_EQ(create("AP", "aabb", 4), nullptr);
  EXPECT_TRUE(log_.contains_part("fail to create dir for conf root = ")) << log_.dump();
  EXPECT_FALSE(log_.contains("Init. zot lib: Done\n"));
}

TEST_F(Creation, FailingLateReleasesTheLogFile) {
  zot_parm_all wanted = parm();
  const std::string path = dir_ / "log";
  zot_util_set_log_ctl_dst_path(&wanted.log_ctl, path.c_str());
  write_bytes(dir_ / "file", "no directory");
  conf_prefix_.set(dir_ / "file");
  EXPECT_EQ(zot_conf_init_args("AP", "aabb", 4, wanted), nullptr);
  // The last message reaches the file only when the stream is closed.
  EXPECT_NE(read_bytes(path).find("fail to create dir for conf root"), std::string::npos);
}

TEST_F(Creation, LoadsNothingFromTheCache) {
  const handle_owner handle = create("AP", "aabb", 4);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->load_flags, 0U);
  for (const zot_slot &slot : handle->slot) {
    EXPECT_EQ(slot.k, nullptr);
    EXPECT_EQ(slot.gpbs, nullptr);
  }
  EXPECT_EQ(handle->ret.list, nullptr);
}

TEST_F(Creation, StartsTheReturnedListAtTheConfRoot) {
  const handle_owner handle = create("AP", "aabb", 4);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->ret.root, handle->conf_root);
}

TEST_F(Creation, InstallsTheOperations) {
  const handle_owner handle = create("CP", "aabb", 4);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(handle->fns.commit_gpb, nullptr);
  EXPECT_EQ(handle->fns.download_k, ap_download_k);
  EXPECT_EQ(handle->fns.download_gpb, ap_download_gpb);
}

TEST_F(Creation, WithDefaultsSetsTimeoutsAndLog) {
  const handle_owner handle(zot_conf_init2("CP", "aabb", 4));
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(handle->subsys_id, "CP");
  EXPECT_EQ(handle->parm->all.timeout, 5U);
  EXPECT_EQ(handle->parm->all.timeout_gpb, 30U);
  EXPECT_EQ(handle->parm->all.log_ctl.facility, 0x7fU);
  EXPECT_EQ(handle->parm->all.log_ctl.option, 1U);
  EXPECT_EQ(handle->parm->all.log_ctl.level, 1U);
  EXPECT_EQ(handle->parm->all.log_ctl.dst, 2U);
}

TEST_F(Creation, WithDefaultsIsQuiet) {
  testing::internal::CaptureStderr();
  const handle_owner handle(zot_conf_init2("CP", "aabb", 4));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(Creation, OfAnAccessPointNeedsTheIndexOnly) {
  const handle_owner handle(zot_conf_init("aabb", 4));
  ASSERT_NE(handle, nullptr);
  EXPECT_STREQ(handle->subsys_id, "AP");
  EXPECT_STREQ(handle->sub_idx, "aabb");
}

}  // namespace
