// SPDX-License-Identifier: Apache-2.0
#include "utilities/command.hpp"

#include <gtest/gtest.h>
#include <signal.h>

#include "tests/support/files.hpp"
#include "zot_conf.h"

namespace {

using zot::test::read_bytes;
using zot::test::temp_dir;

void take_signal(int) {}

// Sets the disposition of SIGCHLD for the duration of a scope.
class sigchld_guard {
 public:
  explicit sigchld_guard(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    ::sigaction(SIGCHLD, &action, &before_);
  }
  sigchld_guard(const sigchld_guard &) = delete;
  sigchld_guard &operator=(const sigchld_guard &) = delete;
  ~sigchld_guard() { ::sigaction(SIGCHLD, &before_, nullptr); }

 private:
  struct sigaction before_ {};
};

auto sigchld_handler() {
  struct sigaction action {};
  ::sigaction(SIGCHLD, nullptr, &action);
  return action.sa_handler;
}

TEST(CmdHelperSystem, RunsTheCommandThroughTheShell) {
  const temp_dir dir;
  EXPECT_EQ(cmd_helper_system(("printf %s $((6 * 7)) > " + (dir / "out")).c_str()), 0);
  EXPECT_EQ(read_bytes(dir / "out"), "42");
}

TEST(CmdHelperSystem, HandsOnTheRawExitStatus) {
  EXPECT_EQ(cmd_helper_system("exit 3"), 3 << 8);
}

TEST(CmdHelperSystem, HandsOnTheSignalThatEndedTheCommand) {
  EXPECT_EQ(cmd_helper_system("kill -KILL $$"), SIGKILL);
}

TEST(CmdHelperSystem, HostThatIgnoresItsChildrenStillGetsTheStatus) {
  const sigchld_guard ignored(SIG_IGN);
  EXPECT_EQ(cmd_helper_system("exit 3"), 3 << 8);
}

TEST(CmdHelperSystem, IgnoredDispositionComesBack) {
  const sigchld_guard ignored(SIG_IGN);
  cmd_helper_system("true");
  EXPECT_EQ(sigchld_handler(), SIG_IGN);
}

TEST(CmdHelperSystem, HandlerOfTheHostComesBack) {
  const sigchld_guard handled(take_signal);
  cmd_helper_system("true");
  EXPECT_EQ(sigchld_handler(), take_signal);
}

TEST(CommandsOutOfSight, AreThoseWhoseShellWasKilled) {
  const int before = zot::count_commands_out_of_sight();
  cmd_helper_system("exit 3");
  cmd_helper_system("sh -c 'kill -KILL $$'; exit 0");
  cmd_helper_system(nullptr);
  EXPECT_EQ(zot::count_commands_out_of_sight(), before);
  cmd_helper_system("kill -KILL $$");
  EXPECT_EQ(zot::count_commands_out_of_sight(), before + 1);
}

}  // namespace
