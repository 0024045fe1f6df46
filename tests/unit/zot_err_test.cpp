// SPDX-License-Identifier: Apache-2.0
#include "zot_err.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/unit/bare_handle.hpp"

namespace {

using zot::test::bare_handle;

TEST(SetStatus, CodeWithoutTextOfItsOwnReadsGenericError) {
  bare_handle handle;
  EXPECT_EQ(zot_priv_err_set_err2(handle.get(), -12, "f", 10), -12);
  EXPECT_STREQ(handle->err_str, "Generic Error");
  EXPECT_EQ(handle->err, -12);
  ASSERT_EQ(handle.log().lines().size(), 1U);
  EXPECT_EQ(handle.log().lines()[0].text, "Generic Error\n");
  EXPECT_EQ(handle.log().lines()[0].level, static_cast<uint32_t>(ZOT_LOG_ERROR));
}

TEST(SetStatus, PositiveCodeIsLoggedAsInformation) {
  bare_handle handle;
  zot_priv_err_set_err2(handle.get(), 2, "f", 10);
  EXPECT_STREQ(handle->err_str, "No update file");
  EXPECT_EQ(handle->err, 2);
  ASSERT_EQ(handle.log().lines().size(), 1U);
  EXPECT_EQ(handle.log().lines()[0].text, "No update file\n");
  EXPECT_EQ(handle.log().lines()[0].level, static_cast<uint32_t>(ZOT_LOG_INFO));
}

TEST(SetStatus, SuccessReplacesAnOlderFailureAndIsLoggedForDebugging) {
  bare_handle handle;
  zot_priv_err_set_err_str2(handle.get(), -1, "f", 10, "older failure");
  handle.log().clear();
  zot_priv_err_set_err2(handle.get(), 0, "f", 11);
  EXPECT_STREQ(handle->err_str, "Success");
  EXPECT_EQ(handle->err, 0);
  ASSERT_EQ(handle.log().lines().size(), 1U);
  EXPECT_EQ(handle.log().lines()[0].level, static_cast<uint32_t>(ZOT_LOG_DEBUG));
}

TEST(SetStatus, LogRecordCarriesALineOfAnyNumber) {
  bare_handle handle;
  zot_priv_err_set_err2(handle.get(), -1, "f", 2000000);
  ASSERT_EQ(handle.log().lines().size(), 1U);
  EXPECT_EQ(handle.log().lines()[0].line, 2000000);
}

TEST(SetStatus, LogRecordCarriesTopicFunctionAndLine) {
  bare_handle handle;
  zot_priv_err_set_err2(handle.get(), -1, "some_operation", 77);
  ASSERT_EQ(handle.log().lines().size(), 1U);
  EXPECT_EQ(handle.log().lines()[0].mask, static_cast<uint32_t>(ZOT_TOPIC_GENERAL));
  EXPECT_EQ(handle.log().lines()[0].func, "some_operation");
  EXPECT_EQ(handle.log().lines()[0].line, 77);
}

TEST(SetStatus, LogLineBeginsWithThePrefix) {
  bare_handle handle;
  handle.ctl().option = ZOT_LOG_OPT_FUNC | ZOT_LOG_OPT_LINE;
  zot_priv_err_set_err_str2(handle.get(), -1, "f", 10, "broken: %d", 5);
  ASSERT_EQ(handle.log().lines().size(), 1U);
  EXPECT_EQ(handle.log().lines()[0].text, "[f (10)] broken: 5\n");
}

TEST(SetStatus, LogObeysTheLevelOfTheHandle) {
  bare_handle handle;
  handle.ctl().level = ZOT_LOG_WARN;
  zot_priv_err_set_err2(handle.get(), 2, "f", 10);
  EXPECT_TRUE(handle.log().lines().empty()) << handle.log().dump();
  EXPECT_EQ(handle->err, 2);
}

class SetStatusSilently : public testing::TestWithParam<std::pair<const char *, long>> {};

TEST_P(SetStatusSilently, RecordsCodeAndTextOnly) {
  bare_handle handle;
  const auto [func, line] = GetParam();
  EXPECT_EQ(zot_priv_err_set_err_str2(handle.get(), -8, func, line, "text %s", "here"), -8);
  EXPECT_EQ(handle->err, -8);
  EXPECT_STREQ(handle->err_str, "text here");
  EXPECT_TRUE(handle.log().lines().empty()) << handle.log().dump();
}

INSTANTIATE_TEST_SUITE_P(WithoutASite, SetStatusSilently,
                         testing::Values(std::pair<const char *, long>{"f", 0},
                                         std::pair<const char *, long>{"", 10},
                                         std::pair<const char *, long>{nullptr, 10}));

TEST(SetStatus, LongTextIsCutAndTerminated) {
  bare_handle handle;
  const std::string text(600, 'x');
  zot_priv_err_set_err_str2(handle.get(), -1, "f", 10, "%s", text.c_str());
  EXPECT_EQ(std::string(handle->err_str), std::string(511, 'x'));
}

TEST(SetStatus, TextOf511BytesIsKeptWhole) {
  bare_handle handle;
  const std::string text(511, 'x');
  zot_priv_err_set_err_str2(handle.get(), -1, "f", 10, "%s", text.c_str());
  EXPECT_EQ(handle->err_str, text);
}

TEST(SetStatus, EmptyFormatTakesTheTextOfTheCode) {
  bare_handle handle;
  const std::string empty;
  zot_priv_err_set_err_str2(handle.get(), -3, "f", 10, empty.c_str(), 0);
  EXPECT_STREQ(handle->err_str, "Out of memory");
}

TEST(SetStatus, TextMayQuoteTheOneBefore) {
  bare_handle handle;
  zot_priv_err_set_err_str2(handle.get(), -1, "f", 10, "disk full");
  zot_priv_err_set_err_str2(handle.get(), -1, "f", 11, "copy: %s",
                            zot_priv_err_get_err_str(handle.get()));
  EXPECT_STREQ(handle->err_str, "copy: disk full");
}

TEST(SetStatusDeathTest, NullHandleAborts) {
  EXPECT_DEATH(zot_priv_err_set_err_str2(nullptr, -1, "f", 10, "text"),
               "src/zot_err.*zot_priv_err_set_err_str2.*reg_data != \\(\\(void \\*\\)0\\)");
}

TEST(SetStatusDeathTest, NullHandleWithoutATextAborts) {
  EXPECT_DEATH(zot_priv_err_set_err2(nullptr, -1, "f", 10),
               "zot_priv_err_set_err_str2.*reg_data != \\(\\(void \\*\\)0\\)");
}

TEST(SetCode, LeavesTextAndLogAlone) {
  bare_handle handle;
  std::strcpy(handle->err_str, "before");
  EXPECT_EQ(zot_priv_err_set_errno(handle.get(), -7), -7);
  EXPECT_EQ(handle->err, -7);
  EXPECT_STREQ(handle->err_str, "before");
  EXPECT_TRUE(handle.log().lines().empty()) << handle.log().dump();
}

TEST(SetCode, YieldsTheCodeWithoutAHandle) {
  EXPECT_EQ(zot_priv_err_set_errno(nullptr, -7), -7);
}

TEST(GetCode, IsTheStoredOne) {
  bare_handle handle;
  handle->err = -14;
  EXPECT_EQ(zot_priv_err_get_errno(handle.get()), -14);
}

TEST(GetCode, IsWrongInputWithoutAHandle) {
  EXPECT_EQ(zot_priv_err_get_errno(nullptr), -5);
}

struct code_text {
  int code;
  const char *text;
};

class CodeText : public testing::TestWithParam<code_text> {};

TEST_P(CodeText, IsTheOneOfTheTable) {
  EXPECT_STREQ(zot_priv_err_get_map_str(GetParam().code), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    EveryCode, CodeText,
    testing::Values(code_text{-11, "Operation timeout"}, code_text{-9, "NULL input"},
                    code_text{-5, "Wrong input value"},
                    code_text{-8, "Configuration file corrupted"},
                    code_text{-7, "Return size too big"},
                    code_text{-6, "Remote Service is not available"},
                    code_text{-4, "Unknown options"}, code_text{-3, "Out of memory"},
                    code_text{2, "No update file"}, code_text{-1, "Generic error"},
                    code_text{0, "Success"}, code_text{-10, nullptr}, code_text{-12, nullptr},
                    code_text{-13, nullptr}, code_text{-14, nullptr}, code_text{-15, nullptr},
                    code_text{-16, nullptr}, code_text{1, nullptr}, code_text{-99, nullptr}));

int record_here(zot_ctx *handle) {
  return ZOT_RECORD(handle, ZOT_ERR_NO_FILE, "[%s]: no %s", __func__, "file");
}

TEST(Record, NamesTheOperationThatRecords) {
  bare_handle handle;
  EXPECT_EQ(record_here(handle.get()), -15);
  EXPECT_STREQ(handle->err_str, "[record_here]: no file");
  ASSERT_EQ(handle.log().lines().size(), 1U);
  EXPECT_EQ(handle.log().lines()[0].func, "record_here");
}

TEST(Record, AnswersTheCodeWithoutAHandle) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(record_here(nullptr), -15);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Record, WithoutATextAnswersTheCodeWithoutAHandle) {
  zot_ctx *const none = nullptr;
  EXPECT_EQ(ZOT_RECORD(none, ZOT_ERR_NOMEM), -3);
}

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

TEST(UtilIsErr, IsTrueBelowZeroOnly) {
  EXPECT_TRUE(zot_util_is_err(-1));
  EXPECT_TRUE(zot_util_is_err(-16));
  EXPECT_FALSE(zot_util_is_err(0));
  EXPECT_FALSE(zot_util_is_err(2));
}

}  // namespace
