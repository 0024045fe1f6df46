// SPDX-License-Identifier: Apache-2.0
#include "zot_parm.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/files.hpp"
#include "tests/unit/bare_handle.hpp"

namespace {

using zot::test::bare_handle;
using zot::test::log_capture;

int set_word(bare_handle &handle, int id, uint32_t value, size_t length = sizeof(uint32_t)) {
  return zot_parm_set(handle.get(), id, &value, length);
}

uint32_t get_word(bare_handle &handle, int id) {
  uint32_t value = 0xdeadU;
  EXPECT_EQ(zot_parm_get(handle.get(), id, &value, sizeof value), 0);
  return value;
}

int set_path(bare_handle &handle, const std::string &path) {
  return zot_parm_set(handle.get(), ZOT_PARM_LOG_DESTINATION_PATH, path.c_str(), path.size());
}

TEST(ParmSet, AnswersNullInputWithoutAHandle) {
  const uint32_t value = 1;
  EXPECT_EQ(zot_parm_set(nullptr, ZOT_PARM_TIMEOUT, &value, sizeof value), -9);
}

TEST(ParmSet, RefusesAHandleWithoutParameters) {
  zot_ctx handle{};
  const uint32_t value = 1;
  testing::internal::CaptureStderr();
  EXPECT_EQ(zot_parm_set(&handle, ZOT_PARM_TIMEOUT, &value, sizeof value), -5);
  testing::internal::GetCapturedStderr();
  EXPECT_STREQ(handle.err_str, "[zot_parm_set] parameter is NULL");
}

TEST(ParmSet, RefusesAMissingValue) {
  bare_handle handle;
  EXPECT_EQ(zot_parm_set(handle.get(), ZOT_PARM_TIMEOUT, nullptr, 4), -9);
  EXPECT_STREQ(handle->err_str, "[zot_parm_set] input val is NULL");
}

TEST(ParmSet, RefusesAZeroLength) {
  bare_handle handle;
  EXPECT_EQ(set_word(handle, ZOT_PARM_TIMEOUT_GPB, 1, 0), -5);
  EXPECT_STREQ(handle->err_str, "[zot_parm_set] input val_len is zero");
}

TEST(ParmGet, AnswersNullInputWithoutAHandle) {
  uint32_t value = 0;
  EXPECT_EQ(zot_parm_get(nullptr, ZOT_PARM_TIMEOUT, &value, sizeof value), -9);
}

TEST(ParmGet, RefusesAHandleWithoutParameters) {
  zot_ctx handle{};
  uint32_t value = 1;
  testing::internal::CaptureStderr();
  EXPECT_EQ(zot_parm_get(&handle, ZOT_PARM_TIMEOUT, &value, sizeof value), -5);
  testing::internal::GetCapturedStderr();
  EXPECT_STREQ(handle.err_str, "[zot_parm_get] parameter is NULL");
}

TEST(ParmGet, RefusesAMissingValue) {
  bare_handle handle;
  EXPECT_EQ(zot_parm_get(handle.get(), ZOT_PARM_TIMEOUT, nullptr, 4), -9);
  EXPECT_STREQ(handle->err_str, "[zot_parm_get] input val is NULL");
}

TEST(ParmGet, RefusesAZeroLength) {
  bare_handle handle;
  uint32_t value = 0;
  EXPECT_EQ(zot_parm_get(handle.get(), ZOT_PARM_TIMEOUT, &value, 0), -5);
  EXPECT_STREQ(handle->err_str, "[zot_parm_get] input val_len is zero");
}

class UnknownParm : public testing::TestWithParam<int> {
 protected:
  std::string text(const char *func) {
    return std::string("[") + func + "] known options " + std::to_string(GetParam());
  }
};

TEST_P(UnknownParm, CannotBeSet) {
  bare_handle handle;
  EXPECT_EQ(set_word(handle, GetParam(), 1), -4);
  EXPECT_EQ(handle->err_str, text("zot_priv_parm_set"));
  EXPECT_EQ(handle->err, -4);
}

TEST_P(UnknownParm, CannotBeRead) {
  bare_handle handle;
  uint32_t value = 0;
  EXPECT_EQ(zot_parm_get(handle.get(), GetParam(), &value, sizeof value), -4);
  EXPECT_EQ(handle->err_str, text("zot_priv_parm_get"));
}

TEST_P(UnknownParm, HasNoName) {
  EXPECT_STREQ(zot_util_parm2str(GetParam()), "");
}

INSTANTIATE_TEST_SUITE_P(OutsideTheTable, UnknownParm, testing::Values(-1, 0, 13));

TEST(ParmName, IsTheNameOfTheConstant) {
  const char *const names[] = {"ZOT_PARM_TIMEOUT",
                               "ZOT_PARM_TIMEOUT_GPB",
                               "ZOT_PARM_RETURN_PROTO_TYPE",
                               "ZOT_PARM_LOG_DESTINATION",
                               "ZOT_PARM_LOG_DESTINATION_FP",
                               "ZOT_PARM_LOG_DESTINATION_PATH",
                               "ZOT_PARM_LOG_DESTINATION_CB_FUNC",
                               "ZOT_PARM_LOG_LEVEL",
                               "ZOT_PARM_LOG_FACILITY",
                               "ZOT_PARM_LOG_OPTION",
                               "ZOT_PARM_LOG_CTL",
                               "ZOT_PARM_ALL"};
  int id = 1;
  for (const char *name : names) {
    EXPECT_STREQ(zot_util_parm2str(id++), name);
  }
}

TEST(ParmSet, LogsTheParameterBeforeItActs) {
  bare_handle handle;
  set_word(handle, ZOT_PARM_TIMEOUT, 3);
  ASSERT_EQ(handle.log().lines().size(), 2U);
  EXPECT_EQ(handle.log().lines()[0].text, "Set parameter \"ZOT_PARM_TIMEOUT\": Done\n");
  EXPECT_EQ(handle.log().lines()[0].level, static_cast<uint32_t>(ZOT_LOG_DEBUG));
  EXPECT_EQ(handle.log().lines()[0].func, "zot_parm_set");
  EXPECT_EQ(handle.log().lines()[1].text, "Success\n");
}

TEST(ParmGet, LogsTheParameterBeforeItActs) {
  bare_handle handle;
  get_word(handle, ZOT_PARM_TIMEOUT);
  ASSERT_EQ(handle.log().lines().size(), 2U);
  EXPECT_EQ(handle.log().lines()[0].text, "Get parameter \"ZOT_PARM_TIMEOUT\": Done\n");
  EXPECT_EQ(handle.log().lines()[0].level, static_cast<uint32_t>(ZOT_LOG_DEBUG));
  EXPECT_EQ(handle.log().lines()[0].func, "zot_parm_get");
}

TEST(ParmSet, StoresTheResultAsTheStatus) {
  bare_handle handle;
  handle->err = -1;
  set_word(handle, ZOT_PARM_TIMEOUT, 3);
  EXPECT_EQ(handle->err, 0);
  EXPECT_STREQ(handle->err_str, "Success");
}

struct word_case {
  int id;
  uint32_t given;
  uint32_t stored;
};

class WordParm : public testing::TestWithParam<word_case> {};

TEST_P(WordParm, ReadsBackWhatItStores) {
  bare_handle handle;
  EXPECT_EQ(set_word(handle, GetParam().id, GetParam().given), 0);
  EXPECT_EQ(get_word(handle, GetParam().id), GetParam().stored);
}

INSTANTIATE_TEST_SUITE_P(Table, WordParm,
                         testing::Values(word_case{1, 0, 0}, word_case{1, 77, 77},
                                         word_case{2, 99, 99}, word_case{3, 0, 0},
                                         word_case{3, 1, 1}, word_case{4, 5, 5}, word_case{8, 0, 0},
                                         word_case{8, 3, 3}, word_case{9, 0xff, 0x7f},
                                         word_case{9, 0x12, 0x12}, word_case{10, 0xff, 3},
                                         word_case{10, 2, 2}));

class WordParmLength : public testing::TestWithParam<int> {};

TEST_P(WordParmLength, HasToHoldTheWordWhenRead) {
  bare_handle handle;
  uint32_t value = 0x55;
  EXPECT_EQ(zot_parm_get(handle.get(), GetParam(), &value, 3), -5);
  EXPECT_NE(std::string(handle->err_str).find("] wrong length: 3 < 4"), std::string::npos)
      << handle->err_str;
  EXPECT_EQ(value, 0x55U);
}

INSTANTIATE_TEST_SUITE_P(EveryWord, WordParmLength, testing::Values(1, 2, 3, 4, 8, 9, 10));

TEST(ParmTimeout, RefusesThreeBytes) {
  bare_handle handle;
  EXPECT_EQ(set_word(handle, ZOT_PARM_TIMEOUT, 8, 3), -5);
  EXPECT_STREQ(handle->err_str, "[zot_parm_set_timeout] wrong length: 3 < 4");
  EXPECT_EQ(handle->parm->all.timeout, 0U);
}

TEST(ParmTimeoutGpb, TakesOneByte) {
  bare_handle handle;
  const unsigned char bytes[] = {9};
  EXPECT_EQ(zot_parm_set(handle.get(), ZOT_PARM_TIMEOUT_GPB, bytes, sizeof bytes), 0);
  uint32_t wanted = 0;
  std::memcpy(&wanted, bytes, sizeof bytes);
  EXPECT_EQ(handle->parm->all.timeout_gpb, wanted);
}

TEST(ParmReturnProtoType, RefusesTwoAndLeavesTheText) {
  bare_handle handle;
  zot_priv_err_set_err_str2(handle.get(), -1, "f", 1, "text before");
  handle->parm->ret_proto_type = 1;
  EXPECT_EQ(set_word(handle, ZOT_PARM_RETURN_PROTO_TYPE, 2), -4);
  EXPECT_STREQ(handle->err_str, "text before");
  EXPECT_EQ(handle->err, -4);
  EXPECT_EQ(handle->parm->ret_proto_type, 1U);
}

class ParmAll : public testing::Test {
 protected:
  int set(const zot_parm_all &value) {
    return zot_parm_set(handle_.get(), ZOT_PARM_ALL, &value, sizeof value);
  }

  bare_handle handle_;
  log_capture other_;
};

TEST_F(ParmAll, TakesControlAndTimeouts) {
  const zot_parm_all value{7, 8, other_.ctl(ZOT_LOG_ERROR, 0xff)};
  EXPECT_EQ(set(value), 0);
  EXPECT_EQ(std::memcmp(&handle_->parm->all, &value, sizeof value), 0);
}

TEST_F(ParmAll, KeepsTheTimeoutsWhenTheControlIsRefused) {
  const zot_parm_all value{7, 8, other_.ctl(4)};
  EXPECT_EQ(set(value), -4);
  EXPECT_EQ(handle_->parm->all.timeout, 0U);
  EXPECT_EQ(handle_->parm->all.timeout_gpb, 0U);
}

TEST_F(ParmAll, RefusesAShortValue) {
  const zot_parm_all value{7, 8, other_.ctl()};
  EXPECT_EQ(zot_parm_set(handle_.get(), ZOT_PARM_ALL, &value, sizeof value - 1), -5);
  EXPECT_EQ(handle_->err_str,
            "[zot_parm_set_all] wrong length: " + std::to_string(sizeof value - 1) + " < " +
                std::to_string(sizeof value));
}

TEST_F(ParmAll, ReadFromTheHandleMayBeSetBack) {
  handle_.ctl().level = ZOT_LOG_ERROR;
  const std::string path = "/absent/log";
  set_path(handle_, path);
  zot_parm_all value{};
  ASSERT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_ALL, &value, sizeof value), 0);
  value.timeout = 11;
  EXPECT_EQ(set(value), 0);
  EXPECT_EQ(handle_.ctl().path, path);
  EXPECT_EQ(handle_->parm->all.timeout, 11U);
}

TEST_F(ParmAll, OfTheHandleItselfSucceeds) {
  const zot_parm_all before = handle_->parm->all;
  EXPECT_EQ(set(handle_->parm->all), 0);
  EXPECT_EQ(std::memcmp(&handle_->parm->all, &before, sizeof before), 0);
}

TEST_F(ParmAll, ReadsBack) {
  handle_->parm->all.timeout = 3;
  handle_->parm->all.timeout_gpb = 4;
  zot_parm_all value{};
  EXPECT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_ALL, &value, sizeof value), 0);
  EXPECT_EQ(std::memcmp(&value, &handle_->parm->all, sizeof value), 0);
}

TEST(ParmRecord, IsZeroAndTiedToTheHandle) {
  zot_ctx handle{};
  EXPECT_EQ(zot_priv_parm_new(&handle), 0);
  ASSERT_NE(handle.parm, nullptr);
  EXPECT_EQ(handle.parm->handle, &handle);
  EXPECT_EQ(handle.log_ctx.ctl, &handle.parm->all.log_ctl);
  EXPECT_EQ(handle.parm->all.timeout, 0U);
  EXPECT_EQ(handle.parm->all.log_ctl.facility, 0U);
  zot_priv_parm_free(&handle);
}

TEST(ParmRecord, LeavesNothingBehindWhenFreed) {
  zot_ctx handle{};
  zot_priv_parm_new(&handle);
  zot_priv_parm_free(&handle);
  EXPECT_EQ(handle.parm, nullptr);
  EXPECT_EQ(handle.log_ctx.ctl, nullptr);
}

TEST(ParmRecord, MayBeAbsentWhenFreed) {
  zot_ctx handle{};
  zot_priv_parm_free(&handle);
  zot_priv_parm_free(nullptr);
  EXPECT_EQ(handle.parm, nullptr);
}

}  // namespace
