// SPDX-License-Identifier: Apache-2.0
// How a watch ends, and what it reports to its service manager.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>

#include "tests/tools/element/datagrams.hpp"
#include "tests/tools/element/watching.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;

const std::string undecided = "the new configuration is neither committed nor rolled back\n";

// True when the process no longer exists or is a zombie.
bool has_ended(const std::string &pid) {
  std::ifstream file("/proc/" + pid + "/stat");
  std::string word;
  char state = 'Z';
  file >> word >> word >> state;
  return state == 'Z';
}

// Whether a process has a handler for a signal.
bool handles(pid_t pid, int signal) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; file >> word;) {
    if (word == "SigCgt:") {
      uint64_t mask = 0;
      file >> std::hex >> mask;
      return (mask >> (signal - 1) & 1U) != 0;
    }
  }
  return false;
}

class WatchStop : public Watch, public testing::WithParamInterface<int> {};

TEST_P(WatchStop, EndsAPauseAtOnce) {
  const auto running = watch("true", {"--every", "1h"});
  running->wait_for(committed);
  const auto begin = std::chrono::steady_clock::now();
  running->send(GetParam());
  EXPECT_EQ(running->wait(), ok);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
  EXPECT_TRUE(running->out().ends_with("stopping: signal " + std::to_string(GetParam()) + "\n"));
}

TEST_P(WatchStop, HearsSignalsThatItsParentBlocked) {
  sigset_t blocked;
  sigset_t before;
  ::sigemptyset(&blocked);
  ::sigaddset(&blocked, SIGCHLD);
  ::sigaddset(&blocked, GetParam());
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto running = watch("true", {"--every", "1h"});
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  running->wait_for(committed);
  running->send(GetParam());
  EXPECT_EQ(running->wait(), ok);
}

TEST_P(WatchStop, EndsTheCommandAndLeavesTheConfigurationUndecided) {
  const auto running = watch("sleep 1000 & echo $! >\"$PROBE\"; wait");
  const std::string child = probe();
  const auto begin = std::chrono::steady_clock::now();
  running->send(GetParam());
  EXPECT_EQ(running->wait(), ok);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
  EXPECT_TRUE(running->out().ends_with(undecided)) << running->out();
  wait_until([&] { return has_ended(child); }, "the end of the command's child");
  EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));
  watch("true")->wait_for(committed + "2 entries\n");
}

TEST_P(WatchStop, EndsACommandThatWillNotEnd) {
  const auto running = watch("trap '' INT TERM; echo $$ >\"$PROBE\"; while :; do sleep 1000; done");
  const std::string command = probe();
  running->send(GetParam());
  EXPECT_EQ(running->wait(), ok);
  EXPECT_TRUE(running->out().ends_with(undecided)) << running->out();
  wait_until([&] { return has_ended(command); }, "the end of the command");
}

INSTANTIATE_TEST_SUITE_P(Signals, WatchStop, testing::Values(SIGINT, SIGTERM));

TEST_F(Watch, EndsAtTheSecondSignalWhileAGetHangs) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *const generic = reinterpret_cast<sockaddr *>(&address);
  ASSERT_EQ(::bind(listener, generic, size), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  ASSERT_EQ(::getsockname(listener, generic, &size), 0);
  variables_["ZOT_REMOTE_PORT"] = std::to_string(ntohs(address.sin_port));
  const auto running = watch("true", {"--timeout", "0"});
  const int connection = ::accept(listener, nullptr, nullptr);
  running->send(SIGTERM);
  wait_until([&] { return !handles(running->pid(), SIGTERM); }, "the first signal");
  running->send(SIGTERM);
  EXPECT_EQ(running->wait(), 128 + SIGTERM);
  ::close(connection);
  ::close(listener);
}

TEST_F(Watch, TellsTheServiceManager) {
  const datagrams manager(dir_ / "notify");
  variables_["NOTIFY_SOCKET"] = dir_ / "notify";
  variables_["WATCHDOG_USEC"] = "100000";
  const auto running = watch("test -z \"$NOTIFY_SOCKET$WATCHDOG_USEC\"", {"--every", "1h"});
  EXPECT_EQ(manager.next(),
            "STATUS=starting: AP 001122334455, every 1h: "
            "the element has no configuration yet");
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
  EXPECT_EQ(manager.next_with("READY"), "READY=1");
  EXPECT_EQ(manager.next_with("STATUS"), "STATUS=" + committed + "2 entries");
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
  running->send(SIGTERM);
  EXPECT_EQ(manager.next_with("STOPPING"), "STOPPING=1");
  EXPECT_EQ(manager.next(), "STATUS=stopping: signal 15");
  EXPECT_EQ(running->wait(), ok);
}

TEST_F(Watch, IsReadyAfterTheFirstGetEvenWhenTheServiceFails) {
  const datagrams manager(dir_ / "notify");
  variables_["NOTIFY_SOCKET"] = dir_ / "notify";
  hide_publication();
  const auto running = watch("true");
  EXPECT_EQ(manager.next_with("READY"), "READY=1");
  EXPECT_TRUE(manager.next_with("STATUS").starts_with("STATUS=service failing: "));
}

TEST_F(Watch, ShowsLifeWhileTheCommandRuns) {
  const datagrams manager(dir_ / "notify");
  variables_["NOTIFY_SOCKET"] = dir_ / "notify";
  variables_["WATCHDOG_USEC"] = "100000";
  const auto running = watch("echo >\"$PROBE\"; sleep 1000");
  EXPECT_EQ(manager.next_with("READY"), "READY=1");
  for (int times = 0; times < 3; ++times) {
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
  }
  // The command ends with it.
  running->send(SIGTERM);
  EXPECT_EQ(running->wait(), ok);
}

}  // namespace
}  // namespace zot::test
