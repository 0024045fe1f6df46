// SPDX-License-Identifier: Apache-2.0
#include "tools/element/notify.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <optional>

#include "tests/support/files.hpp"
#include "tests/tools/element/datagrams.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::notifier;

class Notify : public testing::Test {
 protected:
  void TearDown() override {
    for (const char *const name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"}) {
      ::unsetenv(name);
    }
  }
  static void set(const char *name, const std::string &value) { ::setenv(name, value.c_str(), 1); }

  temp_dir dir_;
  std::string path_ = dir_ / "notify";
};

TEST_F(Notify, SendsDatagramsToThePath) {
  const datagrams manager(path_);
  set("NOTIFY_SOCKET", path_);
  const notifier told;
  told.ready();
  told.tell_status("two\nlines");
  told.stopping();
  EXPECT_EQ(manager.next(), "READY=1");
  EXPECT_EQ(manager.next(), "STATUS=two lines");
  EXPECT_EQ(manager.next(), "STOPPING=1");
  EXPECT_TRUE(manager.is_empty());
}

TEST_F(Notify, SendsDatagramsToAnAbstractName) {
  const std::string name = "@zotconf-test-" + std::to_string(::getpid());
  const datagrams manager(name);
  set("NOTIFY_SOCKET", name);
  notifier().ready();
  EXPECT_EQ(manager.next(), "READY=1");
}

TEST_F(Notify, TakesTheVariablesOutOfTheEnvironment) {
  set("NOTIFY_SOCKET", path_);
  set("WATCHDOG_USEC", "1000");
  set("WATCHDOG_PID", std::to_string(::getpid()));
  const notifier told;
  EXPECT_EQ(std::getenv("NOTIFY_SOCKET"), nullptr);
  EXPECT_EQ(std::getenv("WATCHDOG_USEC"), nullptr);
  EXPECT_EQ(std::getenv("WATCHDOG_PID"), nullptr);
}

TEST_F(Notify, ShowsLifeTwiceInTheInterval) {
  const datagrams manager(path_);
  set("NOTIFY_SOCKET", path_);
  set("WATCHDOG_USEC", "20000000");
  notifier told;
  const auto start = told.next_sign();
  told.show_life(start);
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
  EXPECT_EQ(told.next_sign(), start + 10s);
  told.show_life(start + 9999ms);
  EXPECT_TRUE(manager.is_empty());
  told.show_life(start + 10s);
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
}

struct watchdog {
  const char *interval;
  std::string owner;
};

class NotifyWatchdog : public Notify, public testing::WithParamInterface<watchdog> {};

TEST_P(NotifyWatchdog, IsNotOurs) {
  const datagrams manager(path_);
  set("NOTIFY_SOCKET", path_);
  set("WATCHDOG_USEC", GetParam().interval);
  set("WATCHDOG_PID", GetParam().owner);
  notifier told;
  EXPECT_EQ(told.next_sign(), notifier::clock::time_point::max());
  told.show_life(notifier::clock::now());
  EXPECT_TRUE(manager.is_empty());
}

INSTANTIATE_TEST_SUITE_P(Values, NotifyWatchdog,
                         testing::Values(watchdog{"", ""}, watchdog{"0", ""}, watchdog{"-5", ""},
                                         watchdog{"1000x", ""}, watchdog{"1000", "1"}));

TEST_F(Notify, WaitsNotForEverForAManagerThatDoesNotRead) {
  const datagrams manager(path_);
  set("NOTIFY_SOCKET", path_);
  int kept = 512;
  std::ifstream("/proc/sys/net/unix/max_dgram_qlen") >> kept;
  const notifier told;
  for (int i = 0; i < kept + 2; ++i) {
    told.ready();
  }
  EXPECT_EQ(manager.next(), "READY=1");
}

class NotifyInterval : public Notify, public testing::WithParamInterface<std::string> {};

TEST_P(NotifyInterval, LeavesARestBetweenTwoSigns) {
  set("NOTIFY_SOCKET", path_);
  set("WATCHDOG_USEC", GetParam());
  notifier told;
  const auto now = notifier::clock::now();
  told.show_life(now + 1h);
  EXPECT_GT(told.next_sign(), now + 1h);
  EXPECT_LE(told.next_sign(), now + 25h);
}

INSTANTIATE_TEST_SUITE_P(Extremes, NotifyInterval, testing::Values("1", "9223372036854775807"));

class NotifySocket : public Notify, public testing::WithParamInterface<std::string> {};

TEST_P(NotifySocket, ThatCannotBeUsedIsPassedOver) {
  set("NOTIFY_SOCKET", GetParam());
  set("WATCHDOG_USEC", "1000");
  notifier told;
  told.ready();
  told.show_life(notifier::clock::now());
}

INSTANTIATE_TEST_SUITE_P(Names, NotifySocket,
                         testing::Values("", "/", "relative", "/there/is/none",
                                         "/" + std::string(200, 'x')));

}  // namespace
}  // namespace zot::test
