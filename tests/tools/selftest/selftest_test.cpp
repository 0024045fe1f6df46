// SPDX-License-Identifier: Apache-2.0
#include "tools/selftest/selftest.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <sstream>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"

namespace zot::test {
namespace {

class Selftest : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(below_); }

  [[nodiscard]] finished run(const std::vector<std::string> &more = {},
                             const environment &variables = {}) const {
    std::vector<std::string> args = {"selftest", "--dir", below_};
    args.insert(args.end(), more.begin(), more.end());
    return run_zotconf(args, variables);
  }

  // Runs it on a file system of this size, in a mount namespace that any user may have. What it
  // leaves there is listed in the file `left`.
  [[nodiscard]] finished run_on_file_system_of(const std::string &size) const {
    write_bytes(dir_ / "script", "mount -t tmpfs -o size=" + size + " none '" + below_ +
                                     "' || exit 125\n'" ZOTCONF_PROGRAM "' selftest --dir '" +
                                     below_ + "' >'" + (dir_ / "out") + "' 2>'" + (dir_ / "err") +
                                     "'\nstatus=$?\nls -A '" + below_ + "' >'" + (dir_ / "left") +
                                     "' && exit $status\n");
    const std::string enter =
        ::geteuid() == 0 ? "unshare --mount sh '" : "unshare --map-root-user --mount sh '";
    const int status = std::system((enter + (dir_ / "script") + "'").c_str());
    return {.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            .out = read_bytes(dir_ / "out"),
            .err = read_bytes(dir_ / "err")};
  }

  // Replaces a command of the machine by one that fails at the nth call.
  [[nodiscard]] environment failing(const std::string &name, int nth) const {
    const std::string script = dir_ / "bin/" + name;
    write_bytes(script, "#!/bin/sh\necho >> '" + dir_ / "calls" + "'\n[ \"$(wc -l < '" +
                            dir_ / "calls" + "')\" -lt " + std::to_string(nth) +
                            " ] || exit 1\nPATH=$OLD_PATH\nexec " + name + " \"$@\"\n");
    ::chmod(script.c_str(), 0700);
    const char *const set = std::getenv("PATH");
    const std::string path = set != nullptr ? set : "/usr/bin:/bin";
    return {{"PATH", dir_ / "bin:" + path}, {"OLD_PATH", path}};
  }

  void expect_failure(const finished &done, const std::string &step,
                      const std::string &reason) const {
    EXPECT_EQ(done.status, 1) << done.out;
    EXPECT_TRUE(has(done.out, "\n" + step + ": FAILED: ")) << done.out;
    EXPECT_TRUE(has(done.out, reason)) << done.out;
    EXPECT_TRUE(has(done.out, "; first failed step: " + step + "\n")) << done.out;
    EXPECT_TRUE(has(done.err, "zotconf: selftest: failed step: " + step + "\n")) << done.err;
    expect_nothing_left();
  }
  void expect_nothing_left() const { EXPECT_TRUE(std::filesystem::is_empty(below_)); }

  temp_dir dir_;
  std::string below_ = dir_ / "below";
};

TEST_F(Selftest, PassesAndLeavesNothingBehind) {
  const finished done = run();
  EXPECT_EQ(done.status, 0) << done.out;
  EXPECT_EQ(done.err, "");
  EXPECT_EQ(count_of(": ok: ", done.out), 10U) << done.out;
  EXPECT_TRUE(has(done.out, "\nselftest: 10 of 10 steps passed\n")) << done.out;
  EXPECT_FALSE(has(done.out, "missing")) << done.out;
  expect_nothing_left();
}

TEST_F(Selftest, WorksBelowTheSystemsTemporaryFolderUnlessToldOtherwise) {
  const finished done = run_zotconf({"selftest", "--keep"}, {{"TMPDIR", below_}});
  EXPECT_EQ(done.status, 0) << done.out;
  EXPECT_TRUE(has(done.out, "\nfolder: " + below_ + "/zotconf-")) << done.out;
  EXPECT_FALSE(std::filesystem::is_empty(below_));
}

TEST_F(Selftest, KeepsItsFolderWithTheLogOfTheLibrary) {
  const finished done = run({"--keep"});
  ASSERT_EQ(done.status, 0) << done.out;
  const std::filesystem::path kept = std::filesystem::directory_iterator(below_)->path();
  EXPECT_TRUE(has(done.out, "\nkept: " + kept.string() + "\n")) << done.out;
  EXPECT_TRUE(has(read_bytes(kept / "library.log"), "A commit was interrupted"));
}

TEST_F(Selftest, UsesNoOtherCacheThanItsOwn) {
  const std::string other = dir_ / "other";
  const finished done = run({}, {{"ZOT_PREFIX_CONF_ROOT", other},
                                 {"ZOT_PREFIX_TMP_ROOT", other},
                                 {"ZOT_DEV_PATH", other},
                                 {"ZOT_REMOTE_PORT", "1"}});
  EXPECT_EQ(done.status, 0) << done.out;
  EXPECT_FALSE(exists(other));
}

TEST_F(Selftest, PrintsJsonLines) {
  const finished done = run({"--json"});
  ASSERT_EQ(done.status, 0) << done.out;
  std::istringstream lines(done.out);
  std::string line;
  std::getline(lines, line);
  EXPECT_TRUE(has(json_value(line)["target"]["folder"].text(), below_)) << line;
  for (int step = 0; step < 10; ++step) {
    std::getline(lines, line);
    EXPECT_EQ(json_value(line)["result"].text(), "ok") << line;
    EXPECT_GT(json_value(line)["duration_us"].number(), 0) << line;
  }
  std::getline(lines, line);
  EXPECT_EQ(json_value(line)["passed"].number(), 10) << line;
  EXPECT_TRUE(json_value(line)["first_failed"].is_null()) << line;
  EXPECT_FALSE(std::getline(lines, line)) << line;
}

TEST_F(Selftest, NamesAFolderThatMayNotBeWritten) {
  ASSERT_EQ(::chmod(below_.c_str(), 0500), 0);
  const finished done = run_zotconf_as_user({"selftest", "--dir", below_}, {});
  expect_failure(done, "file system", below_);
  EXPECT_EQ(count_of(": not run\n", done.out), 9U) << done.out;
}

TEST_F(Selftest, NamesACommandThatFails) {
  for (const std::string name : {"cp", "tar", "rm"}) {
    std::filesystem::remove(dir_ / "calls");
    expect_failure(run({}, failing(name, 1)), "commands", name);
    std::filesystem::remove(dir_ / "bin/" + name);
  }
}

TEST_F(Selftest, NamesTheStepInWhichTheLibraryFails) {
  struct failure {
    const char *command;
    int nth;
    const char *step;
  };
  // The step that tests the commands makes the first call.
  for (const failure &each :
       {failure{"cp", 2, "first commit"}, failure{"tar", 2, "first commit"},
        failure{"tar", 3, "update"}, failure{"tar", 4, "rollback"},
        failure{"tar", 5, "killed commit"}, failure{"cp", 4, "killed commit"}}) {
    std::filesystem::remove(dir_ / "calls");
    expect_failure(run({}, failing(each.command, each.nth)), each.step, "ZOT_ERR_");
    std::filesystem::remove_all(dir_ / "bin");
  }
}

TEST_F(Selftest, NamesAFolderThatNoShellTakes) {
  below_ += " with a blank";
  std::filesystem::create_directory(below_);
  expect_failure(run(), "file system", "a shell interprets");
}

TEST_F(Selftest, NamesTheStepThatFindsNoRoom) {
  struct room {
    const char *size;
    const char *step;
    const char *reason;
  };
  for (const room &each : {room{"128k", "publication", "No space left on device"},
                           room{"400k", "first commit", "tar zxvf"}}) {
    expect_failure(run_on_file_system_of(each.size), each.step, each.reason);
    EXPECT_EQ(read_bytes(dir_ / "left"), "");
  }
}

TEST_F(Selftest, CleansUpWhenNobodyReadsItsReport) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  ::close(ends[0]);
  const pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    ::dup2(ends[1], STDOUT_FILENO);
    std::signal(SIGPIPE, SIG_DFL);
    ::execl(ZOTCONF_PROGRAM, "zotconf", "selftest", "--dir", below_.c_str(), nullptr);
    ::_exit(127);
  }
  ::close(ends[1]);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  expect_nothing_left();
}

TEST_F(Selftest, CleansUpWhenItIsInterrupted) {
  for (const int signal : {SIGINT, SIGTERM}) {
    background test({"selftest", "--dir", below_}, {});
    test.wait_for("first commit: ok");
    test.send(signal);
    EXPECT_EQ(test.wait(), 1);
    EXPECT_EQ(test.err(), "zotconf: selftest: interrupted\n");
    expect_nothing_left();
  }
}

}  // namespace
}  // namespace zot::test
