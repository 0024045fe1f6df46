// SPDX-License-Identifier: Apache-2.0
#include "zot_parm_log.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/unit/bare_handle.hpp"

namespace {

using zot::test::bare_handle;
using zot::test::log_capture;
using zot::test::read_bytes;
using zot::test::temp_dir;

int set_word(bare_handle &handle, int id, uint32_t value, size_t length = sizeof(uint32_t)) {
  return zot_parm_set(handle.get(), id, &value, length);
}

int set_path(bare_handle &handle, const std::string &path) {
  return zot_parm_set(handle.get(), ZOT_PARM_LOG_DESTINATION_PATH, path.c_str(), path.size());
}

int ignore_line(zot_log_ctx *, void *, const char *) {
  return 0;
}

std::string written_to(FILE *stream) {
  std::rewind(stream);
  char text[4096];
  return {text, std::fread(text, 1, sizeof text, stream)};
}

TEST(ParmLogDestination, RefusesSix) {
  bare_handle handle;
  EXPECT_EQ(set_word(handle, ZOT_PARM_LOG_DESTINATION, 6), -4);
  EXPECT_STREQ(handle->err_str, "[zot_parm_set_log_destination] unknown options: 6");
  EXPECT_EQ(handle.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_CB_FUNC));
}

TEST(ParmLogLevel, RefusesFour) {
  bare_handle handle;
  EXPECT_EQ(set_word(handle, ZOT_PARM_LOG_LEVEL, 0x1f), -4);
  EXPECT_STREQ(handle->err_str, "[zot_parm_set_log_level] unknown options: 1f");
  EXPECT_EQ(set_word(handle, ZOT_PARM_LOG_LEVEL, 4), -4);
  EXPECT_EQ(handle.ctl().level, static_cast<uint32_t>(ZOT_LOG_DEBUG));
}

TEST(ParmLogFacility, RefusesThreeBytes) {
  bare_handle handle;
  EXPECT_EQ(set_word(handle, ZOT_PARM_LOG_FACILITY, 1, 3), -5);
  EXPECT_STREQ(handle->err_str, "[zot_parm_set_log_facility] wrong length: 3 < 4");
}

TEST(ParmLogFacility, NeverTakesEntryDetail) {
  bare_handle handle;
  EXPECT_EQ(set_word(handle, ZOT_PARM_LOG_FACILITY, 0xff), 0);
  EXPECT_EQ(handle.ctl().facility, 0x7fU);
}

class ParmStream : public testing::Test {
 protected:
  ParmStream() : stream_(std::tmpfile()) {}
  ~ParmStream() override { std::fclose(stream_); }
  int set(size_t length = sizeof(FILE *)) {
    return zot_parm_set(handle_.get(), ZOT_PARM_LOG_DESTINATION_FP, stream_, length);
  }
  std::string written() { return written_to(stream_); }

  bare_handle handle_;
  FILE *stream_;
};

TEST_F(ParmStream, IsTheValueItself) {
  EXPECT_EQ(set(), 0);
  EXPECT_EQ(handle_.ctl().fp, stream_);
  EXPECT_EQ(handle_.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_FP));
}

TEST_F(ParmStream, AnnouncesTheChangeToTheOldDestination) {
  set();
  const auto *line = handle_.log().find("Change logging destination to FILE pointer.\n");
  ASSERT_NE(line, nullptr) << handle_.log().dump();
  EXPECT_EQ(line->level, static_cast<uint32_t>(ZOT_LOG_INFO));
}

TEST_F(ParmStream, ReportsTheNewOneToTheStream) {
  set();
  char address[64];
  std::snprintf(address, sizeof address, "fp: %p\n", static_cast<void *>(stream_));
  EXPECT_EQ(written(),
            std::string("Set logging destination file pointer: Done\n") + address + "Success\n");
}

TEST_F(ParmStream, AnnouncesTheChangeEvenWhenTheLengthIsWrong) {
  EXPECT_EQ(set(sizeof(FILE *) - 1), -5);
  EXPECT_TRUE(handle_.log().contains("Change logging destination to FILE pointer.\n"));
  EXPECT_EQ(handle_.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_CB_FUNC));
  const std::string wanted =
      "[zot_parm_set_log_destination_fp] wrong length: " + std::to_string(sizeof(FILE *) - 1) +
      " < " + std::to_string(sizeof(FILE *));
  EXPECT_EQ(handle_->err_str, wanted);
}

TEST_F(ParmStream, DoesNotAnnounceAnotherStream) {
  set();
  set();
  EXPECT_EQ(written().find("Change logging destination"), std::string::npos);
}

TEST_F(ParmStream, ReadsBack) {
  set();
  FILE *stream = nullptr;
  EXPECT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_LOG_DESTINATION_FP, &stream, sizeof stream), 0);
  EXPECT_EQ(stream, stream_);
  char address[64];
  std::snprintf(address, sizeof address, "fp: %p\n", static_cast<void *>(stream_));
  EXPECT_NE(written().find(std::string("Get logging destination file pointer: Done\n") + address),
            std::string::npos);
}

TEST_F(ParmStream, TellsItsAddressForDebuggingOnly) {
  handle_.ctl().level = ZOT_LOG_INFO;
  set();
  FILE *stream = nullptr;
  zot_parm_get(handle_.get(), ZOT_PARM_LOG_DESTINATION_FP, &stream, sizeof stream);
  EXPECT_EQ(written(),
            "Set logging destination file pointer: Done\n"
            "Get logging destination file pointer: Done\n");
}

class ParmPath : public testing::Test {
 protected:
  std::string written() {
    zot_log_free(handle_.get());
    return read_bytes(path_);
  }

  temp_dir dir_;
  std::string path_ = dir_ / "log";
  bare_handle handle_;
};

TEST_F(ParmPath, IsCopied) {
  std::string value = path_;
  EXPECT_EQ(set_path(handle_, value), 0);
  value.assign(value.size(), '#');
  EXPECT_EQ(handle_.ctl().path, path_);
  EXPECT_EQ(handle_.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_PATH));
}

TEST_F(ParmPath, IsReadNoFurtherThanItsLength) {
  const std::string value = path_ + "tail";
  EXPECT_EQ(zot_parm_set(handle_.get(), ZOT_PARM_LOG_DESTINATION_PATH, value.c_str(), path_.size()),
            0);
  EXPECT_EQ(handle_.ctl().path, path_);
}

TEST_F(ParmPath, IsCutTo4095Bytes) {
  handle_.ctl().level = ZOT_LOG_ERROR;
  EXPECT_EQ(set_path(handle_, std::string(5000, 'p')), 0);
  EXPECT_EQ(handle_.ctl().path, std::string(4095, 'p'));
}

TEST_F(ParmPath, AnnouncesTheChangeToTheOldDestination) {
  set_path(handle_, path_);
  const auto *line = handle_.log().find("Change logging destination to file path.\n");
  ASSERT_NE(line, nullptr) << handle_.log().dump();
  EXPECT_EQ(line->level, static_cast<uint32_t>(ZOT_LOG_INFO));
}

TEST_F(ParmPath, ReportsTheNewOneToTheFile) {
  set_path(handle_, path_);
  EXPECT_EQ(written(), "Set logging destination path: Done\ndst: " + path_ + "\nSuccess\n");
}

TEST_F(ParmPath, RefusesAnEmptyOneButSwitches) {
  handle_.ctl().level = ZOT_LOG_ERROR;
  testing::internal::CaptureStderr();
  EXPECT_EQ(zot_parm_set(handle_.get(), ZOT_PARM_LOG_DESTINATION_PATH, "", 1), -5);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "[zot_parm_set_log_destination_path] empty path\n\n");
  EXPECT_STREQ(handle_->err_str, "[zot_parm_set_log_destination_path] empty path\n");
  EXPECT_EQ(handle_.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_PATH));
  EXPECT_EQ(handle_.ctl().path, nullptr);
}

TEST_F(ParmPath, ReadsBack) {
  set_path(handle_, path_);
  char value[ZOT_PATH_SIZE] = "";
  EXPECT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_LOG_DESTINATION_PATH, value, path_.size() + 1), 0);
  EXPECT_EQ(value, path_);
  EXPECT_NE(written().find("Get logging destination path: Done\ndst: " + path_ + "\nSuccess\n"),
            std::string::npos);
}

TEST_F(ParmPath, IsToldForDebuggingOnly) {
  handle_.ctl().level = ZOT_LOG_INFO;
  set_path(handle_, path_);
  char value[ZOT_PATH_SIZE] = "";
  zot_parm_get(handle_.get(), ZOT_PARM_LOG_DESTINATION_PATH, value, sizeof value);
  EXPECT_EQ(written(), "Set logging destination path: Done\nGet logging destination path: Done\n");
}

TEST_F(ParmPath, NeedsRoomForTheTerminatorWhenRead) {
  set_path(handle_, path_);
  char value[ZOT_PATH_SIZE] = "old";
  EXPECT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_LOG_DESTINATION_PATH, value, path_.size()), -5);
  EXPECT_EQ(handle_->err_str,
            "[zot_parm_get_log_destination_path] wrong length: " + std::to_string(path_.size()) +
                " < " + std::to_string(path_.size() + 1));
  EXPECT_STREQ(value, "old");
}

TEST_F(ParmPath, ThatIsNotSetReadsNothing) {
  char value[] = "old";
  EXPECT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_LOG_DESTINATION_PATH, value, 1), 0);
  EXPECT_STREQ(value, "old");
  EXPECT_STREQ(handle_->err_str, "Success");
}

TEST_F(ParmPath, GivesUpEverythingWhenTheDestinationChanges) {
  set_path(handle_, path_);
  handle_.ctl().fp = stdout;
  handle_.ctl().cb = ignore_line;
  handle_.ctl().cb_arg = this;
  ASSERT_NE(handle_->log_ctx.path_fp, nullptr);
  handle_.ctl().level = ZOT_LOG_WARN;
  EXPECT_EQ(set_word(handle_, ZOT_PARM_LOG_DESTINATION, ZOT_LOG_DST_STDERR), 0);
  EXPECT_EQ(handle_.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_STDERR));
  EXPECT_EQ(handle_->log_ctx.path_fp, nullptr);
  EXPECT_EQ(handle_.ctl().path, nullptr);
  EXPECT_EQ(handle_.ctl().fp, nullptr);
  EXPECT_EQ(handle_.ctl().cb, nullptr);
  EXPECT_EQ(handle_.ctl().cb_arg, nullptr);
}

TEST_F(ParmPath, MovesToAnotherFile) {
  set_path(handle_, path_);
  const std::string other = dir_ / "other";
  set_path(handle_, other);
  zot_log_free(handle_.get());
  EXPECT_EQ(read_bytes(other), "Set logging destination path: Done\ndst: " + other + "\nSuccess\n");
}

TEST_F(ParmPath, MayBeSetToItself) {
  set_path(handle_, path_);
  const char *const stored = handle_.ctl().path;
  EXPECT_EQ(
      zot_parm_set(handle_.get(), ZOT_PARM_LOG_DESTINATION_PATH, stored, std::strlen(stored) + 1),
      0);
  EXPECT_EQ(handle_.ctl().path, path_);
}

TEST(ParmCallback, IsStoredWithItsArgument) {
  bare_handle handle;
  int mark = 0;
  const zot_log_cb_func value{ignore_line, &mark};
  EXPECT_EQ(zot_parm_set(handle.get(), ZOT_PARM_LOG_DESTINATION_CB_FUNC, &value, sizeof value), 0);
  EXPECT_EQ(handle.ctl().cb, ignore_line);
  EXPECT_EQ(handle.ctl().cb_arg, &mark);
  EXPECT_EQ(handle.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_CB_FUNC));
}

TEST(ParmCallback, ReadsBackWithItsArgument) {
  bare_handle handle;
  zot_log_cb_func value{};
  EXPECT_EQ(zot_parm_get(handle.get(), ZOT_PARM_LOG_DESTINATION_CB_FUNC, &value, sizeof value), 0);
  EXPECT_EQ(value.cb, handle.ctl().cb);
  EXPECT_EQ(value.cb_arg, &handle.log());
}

TEST(ParmCallback, RefusesAShortValue) {
  bare_handle handle;
  handle.ctl().dst = ZOT_LOG_DST_STDERR;
  handle.ctl().facility = 0;
  const zot_log_cb_func value{ignore_line, nullptr};
  EXPECT_EQ(zot_parm_set(handle.get(), ZOT_PARM_LOG_DESTINATION_CB_FUNC, &value, sizeof value - 1),
            -5);
  EXPECT_EQ(handle->err_str, "[zot_parm_set_log_destination_cb_func] wrong length: " +
                                 std::to_string(sizeof value - 1) + " < " +
                                 std::to_string(sizeof value));
  EXPECT_EQ(handle.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_STDERR));
}

TEST(ParmCallback, SwitchesEvenWhenItIsMissing) {
  bare_handle handle;
  handle.ctl().dst = ZOT_LOG_DST_STDERR;
  handle.ctl().facility = 0;
  const zot_log_cb_func value{};
  EXPECT_EQ(zot_parm_set(handle.get(), ZOT_PARM_LOG_DESTINATION_CB_FUNC, &value, sizeof value), -5);
  EXPECT_STREQ(handle->err_str,
               "[zot_parm_set_log_destination_cb_func] Empty callback function pointer\n");
  EXPECT_EQ(handle.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_CB_FUNC));
}

class ParmLogCtl : public testing::Test {
 protected:
  int set(const zot_log_ctl &value) {
    return zot_parm_set(handle_.get(), ZOT_PARM_LOG_CTL, &value, sizeof value);
  }

  bare_handle handle_;
  log_capture other_;
};

TEST_F(ParmLogCtl, TakesEveryField) {
  zot_log_ctl value = other_.ctl(ZOT_LOG_ERROR, 0x33, 2);
  EXPECT_EQ(set(value), 0);
  EXPECT_EQ(std::memcmp(&handle_.ctl(), &value, sizeof value), 0);
}

TEST_F(ParmLogCtl, EnablesEntryDetail) {
  EXPECT_EQ(set(other_.ctl(ZOT_LOG_ERROR, 0xff)), 0);
  EXPECT_EQ(handle_.ctl().facility, 0xffU);
}

TEST_F(ParmLogCtl, MasksTheOption) {
  EXPECT_EQ(set(other_.ctl(ZOT_LOG_ERROR, 0x7f, 0xf1)), 0);
  EXPECT_EQ(handle_.ctl().option, 1U);
}

TEST_F(ParmLogCtl, RefusesAShortValue) {
  const zot_log_ctl value = other_.ctl();
  EXPECT_EQ(zot_parm_set(handle_.get(), ZOT_PARM_LOG_CTL, &value, sizeof value - 1), -5);
  EXPECT_EQ(handle_->err_str,
            "[zot_parm_set_log_ctl] wrong length: " + std::to_string(sizeof value - 1) + " < " +
                std::to_string(sizeof value));
}

TEST_F(ParmLogCtl, StopsAtAnUnknownLevel) {
  zot_log_ctl value = other_.ctl(7, 0x33, 2);
  EXPECT_EQ(set(value), -4);
  EXPECT_STREQ(handle_->err_str, "[zot_parm_set_log_level] unknown options: 7");
  EXPECT_EQ(handle_.ctl().facility, 0x33U);
  EXPECT_EQ(handle_.ctl().option, 2U);
  EXPECT_EQ(handle_.ctl().cb_arg, &handle_.log());
}

TEST_F(ParmLogCtl, StopsAtAnUnknownDestination) {
  zot_log_ctl value = other_.ctl(ZOT_LOG_ERROR);
  value.dst = 6;
  EXPECT_EQ(set(value), -4);
  EXPECT_STREQ(handle_->err_str, "[zot_parm_set_log_destination] unknown options: 6");
}

std::vector<std::string> texts_of(const log_capture &log) {
  std::vector<std::string> texts;
  for (const zot::test::log_record &line : log.lines()) {
    texts.push_back(line.text);
  }
  return texts;
}

const std::string announcement = "Set parameter \"ZOT_PARM_LOG_CTL\": Done\n";

TEST_F(ParmLogCtl, IsRecordedOnceAtItsDestination) {
  EXPECT_EQ(set(other_.ctl()), 0);
  EXPECT_EQ(texts_of(handle_.log()), std::vector{announcement});
  EXPECT_EQ(texts_of(other_), std::vector<std::string>{"Success\n"});
}

TEST_F(ParmLogCtl, IsRecordedOnceWhenItIsRefused) {
  EXPECT_EQ(set(other_.ctl(7)), -4);
  EXPECT_EQ(
      texts_of(handle_.log()),
      (std::vector<std::string>{announcement, "[zot_parm_set_log_level] unknown options: 7\n"}));
  handle_.log().clear();
  zot_log_ctl value = other_.ctl();
  value.dst = 6;
  EXPECT_EQ(set(value), -4);
  EXPECT_EQ(texts_of(handle_.log()),
            (std::vector<std::string>{announcement,
                                      "[zot_parm_set_log_destination] unknown options: 6\n"}));
  EXPECT_TRUE(other_.lines().empty()) << other_.dump();
}

struct missing_case {
  uint32_t dst;
  const char *text;
};

class ParmLogCtlTarget : public testing::TestWithParam<missing_case> {};

TEST_P(ParmLogCtlTarget, ThatIsMissingIsTheOnlyRecord) {
  bare_handle handle;
  handle.ctl() = {};
  zot_log_ctl value{};
  value.dst = GetParam().dst;
  value.facility = ZOT_TOPIC_DEFAULT;
  value.level = ZOT_LOG_DEBUG;
  testing::internal::CaptureStderr();
  EXPECT_EQ(zot_parm_set(handle.get(), ZOT_PARM_LOG_CTL, &value, sizeof value), -9);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(GetParam().text) + "\n");
}

TEST_P(ParmLogCtlTarget, HasToBeThere) {
  bare_handle handle;
  handle.ctl().facility = 0;
  zot_log_ctl value{};
  value.dst = GetParam().dst;
  EXPECT_EQ(zot_parm_set(handle.get(), ZOT_PARM_LOG_CTL, &value, sizeof value), -9);
  EXPECT_STREQ(handle->err_str, GetParam().text);
  EXPECT_EQ(handle.ctl().dst, GetParam().dst);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ParmLogCtlTarget,
    testing::Values(missing_case{3, "[zot_parm_set_log_ctl] Null input: fp"},
                    missing_case{4, "[zot_parm_set_log_ctl] Null input: path"},
                    missing_case{5, "[zot_parm_set_log_ctl] Null input: callback function"}));

TEST_F(ParmLogCtl, TakesAStream) {
  zot_log_ctl value{};
  zot_util_set_log_ctl_dst_fp(&value, stdout);
  EXPECT_EQ(set(value), 0);
  EXPECT_EQ(handle_.ctl().fp, stdout);
  EXPECT_EQ(handle_.ctl().dst, static_cast<uint32_t>(ZOT_LOG_DST_FP));
}

TEST_F(ParmLogCtl, TellsItsStreamOnce) {
  FILE *const stream = std::tmpfile();
  zot_log_ctl value = other_.ctl();
  zot_util_set_log_ctl_dst_fp(&value, stream);
  EXPECT_EQ(set(value), 0);
  char address[64];
  std::snprintf(address, sizeof address, "fp: %p\n", static_cast<void *>(stream));
  EXPECT_EQ(written_to(stream),
            std::string("Set logging destination file pointer: Done\n") + address + "Success\n");
  std::fclose(stream);
}

TEST_F(ParmLogCtl, TellsItsPathOnce) {
  const temp_dir dir;
  const std::string path = dir / "log";
  zot_log_ctl value = other_.ctl();
  zot_util_set_log_ctl_dst_path(&value, path.c_str());
  EXPECT_EQ(set(value), 0);
  zot_log_free(handle_.get());
  EXPECT_EQ(read_bytes(path), "Set logging destination path: Done\ndst: " + path + "\nSuccess\n");
}

TEST_F(ParmLogCtl, CopiesThePath) {
  zot_log_ctl value{};
  const std::string path = "/absent/log";
  zot_util_set_log_ctl_dst_path(&value, path.c_str());
  EXPECT_EQ(set(value), 0);
  EXPECT_EQ(handle_.ctl().path, path);
  EXPECT_NE(handle_.ctl().path, path.c_str());
}

TEST_F(ParmLogCtl, GivesUpTheCallbackWhenItTakesAPath) {
  zot_log_ctl value = handle_.ctl();
  value.level = ZOT_LOG_ERROR;
  value.dst = ZOT_LOG_DST_PATH;
  value.path = "/absent/log";
  EXPECT_EQ(set(value), 0);
  EXPECT_EQ(handle_.ctl().cb, nullptr);
  EXPECT_EQ(handle_.ctl().cb_arg, nullptr);
}

TEST_F(ParmLogCtl, RefusesAnEmptyPath) {
  zot_log_ctl value{};
  value.dst = ZOT_LOG_DST_PATH;
  value.path = "";
  EXPECT_EQ(set(value), -5);
  EXPECT_STREQ(handle_->err_str, "[zot_parm_set_log_destination_path] empty path\n");
}

TEST_F(ParmLogCtl, ReadFromTheHandleMayBeSetBack) {
  handle_.ctl().level = ZOT_LOG_ERROR;
  const std::string path = "/absent/log";
  set_path(handle_, path);
  zot_log_ctl value{};
  ASSERT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_LOG_CTL, &value, sizeof value), 0);
  EXPECT_EQ(set(value), 0);
  EXPECT_EQ(handle_.ctl().path, path);
}

TEST_F(ParmLogCtl, OfTheHandleItselfSucceeds) {
  handle_.ctl().level = ZOT_LOG_ERROR;
  set_path(handle_, "/absent/log");
  const zot_log_ctl before = handle_.ctl();
  EXPECT_EQ(set(handle_.ctl()), 0);
  EXPECT_EQ(std::memcmp(&handle_.ctl(), &before, sizeof before), 0);
}

TEST_F(ParmLogCtl, ReadsBack) {
  zot_log_ctl value{};
  EXPECT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_LOG_CTL, &value, sizeof value), 0);
  EXPECT_EQ(std::memcmp(&value, &handle_.ctl(), sizeof value), 0);
}

TEST_F(ParmLogCtl, RefusesAShortBuffer) {
  zot_log_ctl value{};
  EXPECT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_LOG_CTL, &value, sizeof value - 1), -5);
  EXPECT_EQ(handle_->err_str,
            "[zot_parm_get_log_ctl] wrong length: " + std::to_string(sizeof value - 1) + " < " +
                std::to_string(sizeof value));
}

TEST_F(ParmLogCtl, ReadIntoItselfSucceeds) {
  const zot_log_ctl before = handle_.ctl();
  EXPECT_EQ(zot_parm_get(handle_.get(), ZOT_PARM_LOG_CTL, &handle_.ctl(), sizeof before), 0);
  EXPECT_EQ(std::memcmp(&handle_.ctl(), &before, sizeof before), 0);
}

}  // namespace
