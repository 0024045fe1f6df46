// SPDX-License-Identifier: Apache-2.0
#include "zot_log.hpp"

#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/unit/bare_handle.hpp"
#include "tests/unit/captured_syslog.hpp"
#include "zot_log_dst.hpp"

namespace zot::test {

std::vector<syslog_opening> syslog_openings;
std::vector<syslog_message> syslog_messages;

}  // namespace zot::test

namespace {

using zot::test::syslog_messages;
using zot::test::syslog_openings;

[[gnu::format(printf, 2, 0)]] void keep_message(int priority, const char *format, va_list args) {
  char text[8192];
  std::vsnprintf(text, sizeof text, format, args);
  syslog_messages.push_back({priority, format, text});
}

}  // namespace

// In the whole test program the library calls these functions instead of the C library's.
extern "C" {

void openlog(const char *identity, int option, int facility) {
  syslog_openings.push_back({identity != nullptr, option, facility});
}

void syslog(int priority, const char *format, ...) {
  va_list args;
  va_start(args, format);
  keep_message(priority, format, args);
  va_end(args);
}

// A fortified build calls this function.
[[gnu::format(printf, 3, 4)]] void __syslog_chk(int priority, int, const char *format, ...) {
  va_list args;
  va_start(args, format);
  keep_message(priority, format, args);
  va_end(args);
}
}

namespace {

using zot::test::bare_handle;
using zot::test::read_bytes;
using zot::test::temp_dir;

class captured_stderr {
 public:
  captured_stderr() { testing::internal::CaptureStderr(); }
  std::string text() { return testing::internal::GetCapturedStderr(); }
};

zot_log_ctl default_ctl() {
  zot_log_ctl ctl{};
  zot_util_init_log_ctl(&ctl);
  return ctl;
}

int write_plain(zot_log_ctx *log_ctx, uint32_t level, const char *text) {
  return zot_log(log_ctx, level, ZOT_TOPIC_GENERAL, 12, "writer", "%s", text);
}

int write_format(zot_log_ctx *log_ctx, const char *format) {
  return zot_log(log_ctx, ZOT_LOG_ERROR, ZOT_TOPIC_GENERAL, 12, "writer", format, 0);
}

void log_at(zot_log_ctx *log_ctx, uint32_t level) {
  ZOT_LOG(log_ctx, level, ZOT_TOPIC_GENERAL, "%shello %d\n", 7);
}

TEST(LogDefaults, SuppressInformation) {
  zot_log_ctl ctl = default_ctl();
  zot_log_ctx log_ctx{&ctl, {}, nullptr};
  captured_stderr capture;
  log_at(&log_ctx, ZOT_LOG_INFO);
  EXPECT_EQ(capture.text(), "");
}

TEST(LogDefaults, WriteWarningsToStandardErrorWithTheFunctionName) {
  zot_log_ctl ctl = default_ctl();
  zot_log_ctx log_ctx{&ctl, {}, nullptr};
  captured_stderr capture;
  log_at(&log_ctx, ZOT_LOG_WARN);
  EXPECT_EQ(capture.text(), "[log_at] hello 7\n");
}

TEST(LogCallSite, LeavesItsRecordInTheLogContext) {
  zot_log_ctl ctl = default_ctl();
  ctl.level = ZOT_LOG_DEBUG;
  zot_log_ctx log_ctx{&ctl, {}, nullptr};
  captured_stderr capture;
  log_at(&log_ctx, ZOT_LOG_DEBUG);
  capture.text();
  EXPECT_EQ(log_ctx.site.level, static_cast<uint32_t>(ZOT_LOG_DEBUG));
  EXPECT_EQ(log_ctx.site.mask, static_cast<uint32_t>(ZOT_TOPIC_GENERAL));
  EXPECT_STREQ(log_ctx.site.func, "log_at");
  EXPECT_GT(log_ctx.site.line, 0);
}

TEST(LogCallSite, ThatIsOffTouchesNothing) {
  zot_log_ctl ctl = default_ctl();
  zot_log_ctx log_ctx{&ctl, {}, nullptr};
  log_at(&log_ctx, ZOT_LOG_DEBUG);
  EXPECT_EQ(log_ctx.site.func, nullptr);
}

TEST(LogCallSite, WithoutAHandleWritesNothing) {
  zot_ctx *const none = nullptr;
  captured_stderr capture;
  ZOT_LOG(none, ZOT_LOG_ERROR, ZOT_TOPIC_GENERAL, "%slost\n");
  EXPECT_EQ(capture.text(), "");
}

TEST(Log, TellsACallbackItsOwnRecord) {
  bare_handle handle;
  log_at(&handle->log_ctx, ZOT_LOG_DEBUG);
  EXPECT_EQ(zot_log(&handle->log_ctx, ZOT_LOG_WARN, ZOT_TOPIC_FILE, 34, "caller", "text"), 0);
  const auto &line = handle.log().lines().back();
  EXPECT_EQ(line.level, static_cast<uint32_t>(ZOT_LOG_WARN));
  EXPECT_EQ(line.mask, static_cast<uint32_t>(ZOT_TOPIC_FILE));
  EXPECT_EQ(line.line, 34);
  EXPECT_EQ(line.func, "caller");
}

TEST(Log, ThatIsOffLeavesTheRecordOfTheMessageBefore) {
  bare_handle handle;
  log_at(&handle->log_ctx, ZOT_LOG_ERROR);
  handle.ctl().level = ZOT_LOG_WARN;
  EXPECT_EQ(zot_log(&handle->log_ctx, ZOT_LOG_INFO, ZOT_TOPIC_FILE, 34, "caller", "text"), 0);
  EXPECT_STREQ(handle->log_ctx.site.func, "log_at");
}

struct filter_case {
  uint32_t ctl_level;
  uint32_t facility;
  uint32_t level;
  uint32_t mask;
  bool written;
};

class LogFilter : public testing::TestWithParam<filter_case> {};

TEST_P(LogFilter, ComparesLevelAndTopics) {
  const filter_case &each = GetParam();
  bare_handle handle;
  handle.ctl().level = each.ctl_level;
  handle.ctl().facility = each.facility;
  EXPECT_EQ(zot_log(&handle->log_ctx, each.level, each.mask, 1, "f", "text"), 0);
  EXPECT_EQ(handle.log().lines().size(), each.written ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LogFilter,
    testing::Values(filter_case{1, 0x7f, 1, 0x01, true}, filter_case{1, 0x7f, 2, 0x01, false},
                    filter_case{0, 0x7f, 0, 0x40, true}, filter_case{3, 0x7f, 3, 0x80, false},
                    filter_case{3, 0xff, 3, 0x80, true}, filter_case{3, 0x10, 0, 0x12, true},
                    filter_case{3, 0x10, 0, 0x0a, false}, filter_case{3, 0, 0, 0xff, false}));

TEST(Log, WithoutAContextWritesNothing) {
  captured_stderr capture;
  EXPECT_EQ(write_plain(nullptr, ZOT_LOG_ERROR, "text"), 0);
  EXPECT_EQ(capture.text(), "");
}

TEST(Log, WithoutAFormatWritesNothing) {
  bare_handle handle;
  EXPECT_EQ(write_format(&handle->log_ctx, nullptr), 0);
  EXPECT_EQ(write_format(&handle->log_ctx, ""), 0);
  EXPECT_TRUE(handle.log().lines().empty()) << handle.log().dump();
}

TEST(Log, EmptyTextIsNotDelivered) {
  bare_handle handle;
  EXPECT_EQ(write_plain(&handle->log_ctx, ZOT_LOG_ERROR, ""), 0);
  EXPECT_TRUE(handle.log().lines().empty()) << handle.log().dump();
}

class LogLength : public testing::TestWithParam<size_t> {};

TEST_P(LogLength, IsDeliveredWhole) {
  bare_handle handle;
  const std::string text(GetParam(), 'm');
  EXPECT_EQ(write_plain(&handle->log_ctx, ZOT_LOG_ERROR, text.c_str()), 0);
  ASSERT_EQ(handle.log().lines().size(), 1U);
  EXPECT_EQ(handle.log().lines()[0].text, text);
}

INSTANTIATE_TEST_SUITE_P(AroundTheBuffer, LogLength,
                         testing::Values(1U, 4095U, 4096U, 4097U, 5000U));

TEST(Log, KeepsTheErrorNumber) {
  zot_log_ctl ctl = default_ctl();
  const std::string path = "/proc/self/none/log";
  zot_util_set_log_ctl_dst_path(&ctl, path.c_str());
  zot_log_ctx log_ctx{&ctl, {}, nullptr};
  captured_stderr capture;
  errno = EXDEV;
  write_plain(&log_ctx, ZOT_LOG_ERROR, "text");
  EXPECT_EQ(errno, EXDEV);
  capture.text();
}

struct prefix_case {
  uint32_t option;
  const char *prefix;
};

class LogPrefix : public testing::TestWithParam<prefix_case> {};

TEST_P(LogPrefix, FollowsTheOptions) {
  zot_log_ctl ctl = default_ctl();
  ctl.option = GetParam().option;
  const zot_log_ctx log_ctx{&ctl, {}, nullptr};
  char buf[ZOT_LOG_PREFIX_SIZE] = "old";
  EXPECT_EQ(zot_log_get_prefix(&log_ctx, "func", 42, buf, sizeof buf), buf);
  EXPECT_STREQ(buf, GetParam().prefix);
}

INSTANTIATE_TEST_SUITE_P(Table, LogPrefix,
                         testing::Values(prefix_case{0, ""}, prefix_case{1, "[func] "},
                                         prefix_case{2, "[ (42)] "},
                                         prefix_case{3, "[func (42)] "}));

TEST(LogPrefixBuffer, WithoutAContextNamesTheFunction) {
  char buf[ZOT_LOG_PREFIX_SIZE];
  EXPECT_STREQ(zot_log_get_prefix(nullptr, "func", 42, buf, sizeof buf), "[func] ");
}

TEST(LogPrefixBuffer, WithoutAControlIsEmpty) {
  const zot_log_ctx log_ctx{};
  char buf[ZOT_LOG_PREFIX_SIZE];
  EXPECT_STREQ(zot_log_get_prefix(&log_ctx, "func", 42, buf, sizeof buf), "");
}

TEST(LogPrefixBuffer, BoundsThePrefix) {
  char buf[6];
  EXPECT_STREQ(zot_log_get_prefix(nullptr, "function", 42, buf, sizeof buf), "[func");
}

TEST(LogWithoutAControl, ReportsItselfForAnError) {
  zot_log_ctx log_ctx{};
  captured_stderr capture;
  EXPECT_EQ(write_plain(&log_ctx, ZOT_LOG_WARN, "text\n"), -1);
  EXPECT_EQ(capture.text(), "[ERROR]: Null zot_log_ctl Input.\n");
}

TEST(LogWithoutAControl, IsSilentForInformation) {
  zot_log_ctx log_ctx{};
  captured_stderr capture;
  EXPECT_EQ(write_plain(&log_ctx, ZOT_LOG_INFO, "text\n"), 0);
  EXPECT_EQ(capture.text(), "");
}

TEST(LogWithoutAControl, IsSilentForEntryDetail) {
  zot_log_ctx log_ctx{};
  captured_stderr capture;
  EXPECT_EQ(zot_log(&log_ctx, ZOT_LOG_ERROR, ZOT_TOPIC_DETAIL, 1, "f", "text\n"), 0);
  EXPECT_EQ(capture.text(), "");
}

TEST(LogDelivery, WithoutAContextGoesToStandardError) {
  captured_stderr capture;
  EXPECT_EQ(zot_log_deliver(nullptr, zot_log_site{}, "text\n"), 0);
  EXPECT_EQ(capture.text(), "text\n");
}

struct priority_case {
  uint32_t level;
  int priority;
};

class LogToSyslog : public testing::TestWithParam<priority_case> {};

TEST_P(LogToSyslog, MapsTheLevel) {
  bare_handle handle;
  handle.ctl().dst = ZOT_LOG_DST_SYSLOG;
  syslog_messages.clear();
  EXPECT_EQ(write_plain(&handle->log_ctx, GetParam().level, "100% here\n"), 0);
  ASSERT_EQ(syslog_messages.size(), 1U);
  EXPECT_EQ(syslog_messages[0].priority, GetParam().priority);
  EXPECT_EQ(syslog_messages[0].format, "%s");
  EXPECT_EQ(syslog_messages[0].text, "100% here\n");
}

INSTANTIATE_TEST_SUITE_P(EveryLevel, LogToSyslog,
                         testing::Values(priority_case{0, 3}, priority_case{1, 4},
                                         priority_case{2, 6}, priority_case{3, 7}));

TEST(Syslog, RefusesALevelWithoutAPriority) {
  bare_handle handle;
  handle.ctl().dst = ZOT_LOG_DST_SYSLOG;
  handle.ctl().level = 4;
  syslog_messages.clear();
  EXPECT_EQ(write_plain(&handle->log_ctx, 4, "text\n"), -1);
  EXPECT_TRUE(syslog_messages.empty());
}

TEST(Syslog, OpensTheConnectionOncePerProcess) {
  bare_handle first;
  bare_handle second;
  first.ctl().dst = ZOT_LOG_DST_SYSLOG;
  second.ctl().dst = ZOT_LOG_DST_SYSLOG;
  write_plain(&first->log_ctx, ZOT_LOG_ERROR, "one\n");
  write_plain(&second->log_ctx, ZOT_LOG_ERROR, "two\n");
  ASSERT_EQ(syslog_openings.size(), 1U);
  EXPECT_FALSE(syslog_openings[0].has_identity);
  EXPECT_EQ(syslog_openings[0].option, 5);
  EXPECT_EQ(syslog_openings[0].facility, 8);
}

TEST(LogToStandardOutput, WritesTheText) {
  bare_handle handle;
  handle.ctl().dst = ZOT_LOG_DST_STDOUT;
  testing::internal::CaptureStdout();
  EXPECT_EQ(write_plain(&handle->log_ctx, ZOT_LOG_ERROR, "text\n"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "text\n");
}

TEST(LogToStandardError, WritesTheText) {
  bare_handle handle;
  handle.ctl().dst = ZOT_LOG_DST_STDERR;
  captured_stderr capture;
  EXPECT_EQ(write_plain(&handle->log_ctx, ZOT_LOG_ERROR, "text\n"), 0);
  EXPECT_EQ(capture.text(), "text\n");
}

TEST(LogToStream, WritesTheText) {
  bare_handle handle;
  const temp_dir dir;
  FILE *const stream = std::fopen((dir / "log").c_str(), "we");
  ASSERT_NE(stream, nullptr);
  zot_util_set_log_ctl_dst_fp(&handle.ctl(), stream);
  EXPECT_EQ(write_plain(&handle->log_ctx, ZOT_LOG_ERROR, "text\n"), 0);
  std::fclose(stream);
  EXPECT_EQ(read_bytes(dir / "log"), "text\n");
}

TEST(LogToStream, WithoutAStreamGoesToStandardError) {
  bare_handle handle;
  handle.ctl().dst = ZOT_LOG_DST_FP;
  captured_stderr capture;
  EXPECT_EQ(write_plain(&handle->log_ctx, ZOT_LOG_ERROR, "text\n"), 0);
  EXPECT_EQ(capture.text(), "text\n");
}

TEST(LogToStream, WriterReportsAMissingStream) {
  captured_stderr capture;
  EXPECT_EQ(zot_log_dst_fp(nullptr, "text\n"), -1);
  EXPECT_EQ(capture.text(), "[zot_log_dst_fp]: [ERROR] Null FILE pointer.\n");
}

class LogToPath : public testing::Test {
 protected:
  zot_log_ctl &ctl() { return ctl_; }
  zot_log_ctx *log_ctx() { return &log_ctx_; }
  void close() {
    if (log_ctx_.path_fp != nullptr) {
      std::fclose(log_ctx_.path_fp);
      log_ctx_.path_fp = nullptr;
    }
  }
  void TearDown() override { close(); }

  temp_dir dir_;
  std::string path_ = dir_ / "log";

 private:
  zot_log_ctl ctl_ = default_ctl();
  zot_log_ctx log_ctx_{&ctl_, {}, nullptr};
};

TEST_F(LogToPath, AppendsToTheFile) {
  zot::test::write_bytes(path_, "old\n");
  zot_util_set_log_ctl_dst_path(&ctl(), path_.c_str());
  EXPECT_EQ(write_plain(log_ctx(), ZOT_LOG_ERROR, "one\n"), 0);
  EXPECT_EQ(write_plain(log_ctx(), ZOT_LOG_ERROR, "two\n"), 0);
  close();
  EXPECT_EQ(read_bytes(path_), "old\none\ntwo\n");
}

TEST_F(LogToPath, OpensTheFileAtTheFirstMessage) {
  zot_util_set_log_ctl_dst_path(&ctl(), path_.c_str());
  EXPECT_FALSE(zot::test::exists(path_));
  write_plain(log_ctx(), ZOT_LOG_ERROR, "one\n");
  EXPECT_TRUE(zot::test::exists(path_));
}

TEST_F(LogToPath, KeepsTheStreamOpen) {
  zot_util_set_log_ctl_dst_path(&ctl(), path_.c_str());
  write_plain(log_ctx(), ZOT_LOG_ERROR, "one\n");
  FILE *const opened = log_ctx()->path_fp;
  ASSERT_NE(opened, nullptr);
  write_plain(log_ctx(), ZOT_LOG_ERROR, "two\n");
  EXPECT_EQ(log_ctx()->path_fp, opened);
}

TEST_F(LogToPath, ReportsAnUnopenablePathForEachMessage) {
  const std::string path = dir_ / "absent/log";
  zot_util_set_log_ctl_dst_path(&ctl(), path.c_str());
  const std::string report =
      "[ERROR] Unable to open log path = " + path + ": No such file or directory\n";
  captured_stderr capture;
  EXPECT_EQ(write_plain(log_ctx(), ZOT_LOG_ERROR, "one\n"), -1);
  EXPECT_EQ(write_plain(log_ctx(), ZOT_LOG_ERROR, "two\n"), -1);
  EXPECT_EQ(capture.text(), report + report);
}

TEST_F(LogToPath, WithoutAPathGoesToStandardError) {
  ctl().dst = ZOT_LOG_DST_PATH;
  captured_stderr capture;
  EXPECT_EQ(write_plain(log_ctx(), ZOT_LOG_ERROR, "text\n"), 0);
  EXPECT_EQ(capture.text(), "text\n");
}

TEST_F(LogToPath, ReportsAnEmptyPath) {
  ctl().dst = ZOT_LOG_DST_PATH;
  ctl().path = "";
  captured_stderr capture;
  EXPECT_EQ(write_plain(log_ctx(), ZOT_LOG_ERROR, "text\n"), -1);
  EXPECT_EQ(capture.text(), "[ERROR] Null or empty log path.\n");
}

TEST_F(LogToPath, WriterWithoutAContextClosesTheFileAtOnce) {
  EXPECT_EQ(zot_log_dst_path(nullptr, path_.c_str(), "text\n"), 0);
  EXPECT_EQ(read_bytes(path_), "text\n");
}

TEST(LogToCallback, HandsOverContextArgumentAndText) {
  struct seen {
    zot_log_ctx *log_ctx = nullptr;
    std::string text;
  } got;
  zot_log_ctl ctl = default_ctl();
  const auto keep = [](zot_log_ctx *log_ctx, void *arg, const char *line) {
    *static_cast<seen *>(arg) = {log_ctx, line};
    return 99;
  };
  zot_util_set_log_ctl_dst_cb_func(&ctl, keep, &got);
  zot_log_ctx log_ctx{&ctl, {}, nullptr};
  EXPECT_EQ(write_plain(&log_ctx, ZOT_LOG_ERROR, "text\n"), 0);
  EXPECT_EQ(got.log_ctx, &log_ctx);
  EXPECT_EQ(got.text, "text\n");
}

TEST(LogToCallback, WithoutACallbackGoesToStandardError) {
  bare_handle handle;
  handle.ctl().cb = nullptr;
  captured_stderr capture;
  EXPECT_EQ(write_plain(&handle->log_ctx, ZOT_LOG_ERROR, "text\n"), 0);
  EXPECT_EQ(capture.text(), "text\n");
}

TEST(LogToCallback, WriterReportsAMissingCallback) {
  captured_stderr capture;
  EXPECT_EQ(zot_log_dst_cb_func(nullptr, nullptr, nullptr, "text\n"), -1);
  EXPECT_EQ(capture.text(), "[zot_log_dst_cb_func]: [ERROR] Null callback function pointer.\n");
}

TEST(LogToUnknownDestination, NamesItAndSucceeds) {
  bare_handle handle;
  handle.ctl().dst = 9;
  captured_stderr capture;
  EXPECT_EQ(write_plain(&handle->log_ctx, ZOT_LOG_ERROR, "text\n"), 0);
  EXPECT_EQ(capture.text(), "[ERROR]: unknon ZOT_LOG_DST enum: 9\n");
}

TEST(LogInit, InstallsTheDefaultControl) {
  bare_handle handle;
  handle.ctl() = zot_log_ctl{};
  EXPECT_EQ(zot_log_init(handle.get()), 0);
  EXPECT_EQ(handle.ctl().facility, 0x7fU);
  EXPECT_EQ(handle.ctl().option, 1U);
  EXPECT_EQ(handle.ctl().level, 1U);
  EXPECT_EQ(handle.ctl().dst, 2U);
}

TEST(LogInit, AnswersNullInputWithoutAHandle) {
  EXPECT_EQ(zot_log_init(nullptr), -9);
}

TEST(LogFree, ClosesAndForgetsTheStream) {
  bare_handle handle;
  const temp_dir dir;
  const std::string path = dir / "log";
  zot_parm_set(handle.get(), ZOT_PARM_LOG_DESTINATION_PATH, path.c_str(), path.size());
  write_plain(&handle->log_ctx, ZOT_LOG_ERROR, "last words\n");
  ASSERT_NE(handle->log_ctx.path_fp, nullptr);
  zot_log_free(handle.get());
  EXPECT_EQ(handle->log_ctx.path_fp, nullptr);
  EXPECT_TRUE(read_bytes(path).ends_with("last words\n"));
}

TEST(LogFree, TakesNoHandle) {
  zot_log_free(nullptr);
  bare_handle handle;
  zot_log_free(handle.get());
  EXPECT_EQ(handle->log_ctx.path_fp, nullptr);
}

}  // namespace
