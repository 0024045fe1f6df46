// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

#include "tests/support/files.hpp"
#include "tests/unit/bare_handle.hpp"
#include "zot_conf.h"

namespace {

using zot::test::bare_handle;
using zot::test::exists;
using zot::test::log_record;
using zot::test::read_bytes;
using zot::test::temp_dir;
using zot::test::write_bytes;

constexpr const char *caller = "some_caller";
constexpr long caller_line = 77;

void expect_site(const log_record &line, uint32_t level, uint32_t mask) {
  EXPECT_EQ(line.level, level) << line.text;
  EXPECT_EQ(line.mask, mask) << line.text;
  EXPECT_EQ(line.func, caller) << line.text;
  EXPECT_EQ(line.line, caller_line) << line.text;
}

TEST(LoggedCopy, CopiesAndSaysSoInTheNameOfTheCaller) {
  const temp_dir dir;
  bare_handle handle;
  write_bytes(dir / "src", "12345");
  EXPECT_EQ(zot_priv_fcopy(handle.get(), (dir / "src").c_str(), (dir / "dst").c_str(), caller,
                           caller_line),
            ZOT_OK);
  EXPECT_EQ(read_bytes(dir / "dst"), "12345");
  ASSERT_EQ(handle.log().lines().size(), 2U) << handle.log().dump();
  const log_record &command = handle.log().lines()[0];
  EXPECT_EQ(command.text, "Run CMD: cp \"" + (dir / "src") + "\" \"" + (dir / "dst") + "\"\n");
  expect_site(command, ZOT_LOG_DEBUG, 0x02);
  const log_record &counts = handle.log().lines()[1];
  EXPECT_EQ(counts.text, "Read byte = 5, write byte = 5\n");
  expect_site(counts, ZOT_LOG_DEBUG, 0x02);
}

TEST(LoggedCopy, AddsTheBytesToTheCounters) {
  const temp_dir dir;
  bare_handle handle;
  handle->stat.bytes_read = 100;
  handle->stat.bytes_written = 1000;
  write_bytes(dir / "src", "12345");
  zot_priv_fcopy(handle.get(), (dir / "src").c_str(), (dir / "dst").c_str(), caller, caller_line);
  EXPECT_EQ(handle->stat.bytes_read, 105U);
  EXPECT_EQ(handle->stat.bytes_written, 1005U);
}

TEST(LoggedCopy, CountersGoOnBeyondFourGibibytes) {
  const temp_dir dir;
  bare_handle handle;
  handle->stat.bytes_read = UINT32_MAX;
  handle->stat.bytes_written = UINT32_MAX - 1;
  write_bytes(dir / "src", "12345");
  zot_priv_fcopy(handle.get(), (dir / "src").c_str(), (dir / "dst").c_str(), caller, caller_line);
  EXPECT_EQ(handle->stat.bytes_read, 4294967300U);
  EXPECT_EQ(handle->stat.bytes_written, 4294967299U);
}

TEST(LoggedCopy, SuccessLeavesTheRecordedStatus) {
  const temp_dir dir;
  bare_handle handle;
  zot_priv_err_set_err_str2(handle.get(), ZOT_ERR_CORRUPTED, "f", 1, "older text");
  write_bytes(dir / "src", "12345");
  zot_priv_fcopy(handle.get(), (dir / "src").c_str(), (dir / "dst").c_str(), caller, caller_line);
  EXPECT_EQ(handle->err, ZOT_ERR_CORRUPTED);
  EXPECT_STREQ(handle->err_str, "older text");
}

TEST(LoggedCopy, FailureIsRecordedWithBothPathsInTheNameOfTheCaller) {
  const temp_dir dir;
  bare_handle handle;
  EXPECT_EQ(zot_priv_fcopy(handle.get(), (dir / "src").c_str(), (dir / "dst").c_str(), caller,
                           caller_line),
            ZOT_ERR_GENERIC);
  const std::string text =
      "fail to cp " + (dir / "src") + " to " + (dir / "dst") + ":No such file or directory";
  EXPECT_EQ(handle->err, ZOT_ERR_GENERIC);
  EXPECT_EQ(std::string(handle->err_str), text);
  ASSERT_EQ(handle.log().lines().size(), 1U) << handle.log().dump();
  EXPECT_EQ(handle.log().lines()[0].text, text + "\n");
  expect_site(handle.log().lines()[0], ZOT_LOG_ERROR, 0x01);
}

TEST(LoggedCopy, FailureLeavesTheCounters) {
  const temp_dir dir;
  bare_handle handle;
  std::filesystem::create_directory(dir / "src");
  zot_priv_fcopy(handle.get(), (dir / "src").c_str(), (dir / "dst").c_str(), caller, caller_line);
  EXPECT_EQ(handle->stat.bytes_read, 0U);
  EXPECT_EQ(handle->stat.bytes_written, 0U);
}

TEST(LoggedCopy, WithoutAHandleNothingIsCopied) {
  const temp_dir dir;
  write_bytes(dir / "src", "12345");
  EXPECT_EQ(
      zot_priv_fcopy(nullptr, (dir / "src").c_str(), (dir / "dst").c_str(), caller, caller_line),
      ZOT_ERR_NULL_INPUT);
  EXPECT_FALSE(exists(dir / "dst"));
}

TEST(LoggedCopy, PrefixNamesTheCaller) {
  const temp_dir dir;
  bare_handle handle;
  handle.ctl().option = ZOT_LOG_OPT_FUNC | ZOT_LOG_OPT_LINE;
  write_bytes(dir / "src", "12345");
  zot_priv_fcopy(handle.get(), (dir / "src").c_str(), (dir / "dst").c_str(), caller, caller_line);
  EXPECT_TRUE(handle.log().contains("[some_caller (77)] Read byte = 5, write byte = 5\n"))
      << handle.log().dump();
}

TEST(LoggedCommand, CommandThatSucceedsGivesZeroAndOneLine) {
  bare_handle handle;
  int code = 99;
  EXPECT_EQ(_zot_priv_system(handle.get(), "exit 0", &code, caller, caller_line), ZOT_OK);
  EXPECT_EQ(code, 0);
  ASSERT_EQ(handle.log().lines().size(), 1U) << handle.log().dump();
  EXPECT_EQ(handle.log().lines()[0].text, "Run system command: exit 0 done, ret = 0\n");
  expect_site(handle.log().lines()[0], ZOT_LOG_INFO, 0x01);
}

TEST(LoggedCommand, CommandThatFailsIsNoErrorAndLogsASecondLine) {
  bare_handle handle;
  int code = 99;
  EXPECT_EQ(_zot_priv_system(handle.get(), "exit 3", &code, caller, caller_line), ZOT_OK);
  EXPECT_EQ(code, 3);
  ASSERT_EQ(handle.log().lines().size(), 2U) << handle.log().dump();
  EXPECT_EQ(handle.log().lines()[0].text, "Run system command: exit 3 done, ret = 3\n");
  EXPECT_TRUE(handle.log().lines()[1].text.starts_with("err = ")) << handle.log().dump();
  EXPECT_TRUE(handle.log().lines()[1].text.ends_with("\n"));
  expect_site(handle.log().lines()[1], ZOT_LOG_INFO, 0x01);
}

TEST(LoggedCommand, CodeMayBeLeftOut) {
  bare_handle handle;
  EXPECT_EQ(_zot_priv_system(handle.get(), "exit 3", nullptr, caller, caller_line), ZOT_OK);
}

TEST(LoggedCommand, HighestExitStatusIsHandedOn) {
  bare_handle handle;
  int code = 0;
  EXPECT_EQ(_zot_priv_system(handle.get(), "exit 255", &code, caller, caller_line), ZOT_OK);
  EXPECT_EQ(code, 255);
}

TEST(LoggedCommand, SignalThatEndedTheCommandStaysInTheCode) {
  bare_handle handle;
  int code = 0;
  EXPECT_EQ(_zot_priv_system(handle.get(), "kill -KILL $$", &code, caller, caller_line), ZOT_OK);
  EXPECT_EQ(code, SIGKILL);
}

TEST(LoggedCommand, NoCommandIsWrongInput) {
  for (const char *cmd : {static_cast<const char *>(nullptr), ""}) {
    bare_handle handle;
    int code = 99;
    EXPECT_EQ(_zot_priv_system(handle.get(), cmd, &code, caller, caller_line), ZOT_ERR_WRONG_INPUT);
    EXPECT_STREQ(handle->err_str, "Null or empty command");
    EXPECT_EQ(handle->err, ZOT_ERR_WRONG_INPUT);
    EXPECT_EQ(code, 99);
    ASSERT_EQ(handle.log().lines().size(), 1U) << handle.log().dump();
    expect_site(handle.log().lines()[0], ZOT_LOG_ERROR, 0x01);
  }
}

TEST(LoggedCommand, WithoutAHandleNothingRuns) {
  const temp_dir dir;
  const std::string cmd = "touch " + (dir / "note");
  EXPECT_EQ(_zot_priv_system(nullptr, cmd.c_str(), nullptr, caller, caller_line),
            ZOT_ERR_NULL_INPUT);
  EXPECT_FALSE(exists(dir / "note"));
}

// From here on this process cannot get the status of its children.
bool lose_children() {
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_wait4, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ECHILD),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter{static_cast<unsigned short>(std::size(rules)), rules};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Runs in its own process, because the lost status cannot be undone. Exits with 0 if all is as
// expected.
[[noreturn]] void run_without_a_status(int wanted) {
  bare_handle handle;
  int code = 99;
  const bool is_lost = lose_children();
  const int status = _zot_priv_system(handle.get(), "true", &code, caller, caller_line);
  const std::string text = "No child process or no status, cmd = true: No child processes";
  const bool is_expected = is_lost && status == wanted && code == 99 && handle->err == wanted &&
                           handle->err_str == text && handle.log().lines().size() == 1 &&
                           handle.log().contains(text + "\n");
  std::fprintf(stderr, "%s\n", handle.log().dump().c_str());
  std::_Exit(is_expected ? 0 : 1);
}

TEST(LoggedCommand, LostStatusIsRecordedAsFailure) {
  EXPECT_EXIT(run_without_a_status(ZOT_ERR_GENERIC), testing::ExitedWithCode(0), "");
}

}  // namespace
