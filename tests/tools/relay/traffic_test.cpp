// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/traffic.hpp"

#include <gtest/gtest.h>

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::traffic;

const traffic::clock::time_point begin{1h};

TEST(Traffic, WithoutALimitIsNeverAhead) {
  traffic all(0, 30s);
  all.count(UINT64_MAX / 2, begin);
  EXPECT_EQ(all.ahead(begin), 0s);
}

TEST(Traffic, IsAheadForTheTimeThatItsBytesTake) {
  traffic all(1000, 30s);
  EXPECT_EQ(all.ahead(begin), 0s);
  all.count(600, begin);
  EXPECT_EQ(all.ahead(begin), 500ms);
  all.count(250, begin + 100ms);
  EXPECT_EQ(all.ahead(begin + 100ms), 650ms);
  EXPECT_EQ(all.ahead(begin + 2s), 0s);
}

TEST(Traffic, CatchesUpWithNoMoreThanATenthOfASecond) {
  traffic all(1000, 30s);
  all.count(1000, begin);
  EXPECT_EQ(all.ahead(begin), 900ms);
  all.count(1000, begin + 1min);
  EXPECT_EQ(all.ahead(begin + 1min), 900ms);
}

TEST(Traffic, IsTooSlowBelowOneKibibyteASecond) {
  traffic all(0, 10s);
  all.restart_wait(begin);
  all.count(10 * 1024 - 1, begin);
  EXPECT_FALSE(all.is_too_slow(begin + 9s));
  EXPECT_TRUE(all.is_too_slow(begin + 10s));
}

TEST(Traffic, IsJudgedAnewAfterEachWait) {
  traffic all(0, 10s);
  all.restart_wait(begin);
  all.count(10 * 1024, begin);
  EXPECT_FALSE(all.is_too_slow(begin + 10s));
  EXPECT_FALSE(all.is_too_slow(begin + 19s));
  EXPECT_TRUE(all.is_too_slow(begin + 20s));
}

TEST(Traffic, WaitsAnewForTheNextRequest) {
  traffic all(0, 10s);
  all.restart_wait(begin);
  all.restart_wait(begin + 9s);
  EXPECT_FALSE(all.is_too_slow(begin + 18s));
  EXPECT_TRUE(all.is_too_slow(begin + 19s));
}

TEST(Traffic, IsNotSlowWhileNothingIsReadOnPurpose) {
  traffic all(100, 10s);
  all.restart_wait(begin);
  all.exclude_from_wait(9s);
  EXPECT_FALSE(all.is_too_slow(begin + 18s));
  EXPECT_TRUE(all.is_too_slow(begin + 19s));
}

TEST(Traffic, AtTheLimitOfALowRateIsNotSlow) {
  traffic all(100, 10s);
  all.restart_wait(begin);
  all.count(1000, begin);
  EXPECT_FALSE(all.is_too_slow(begin + 10s));
  EXPECT_TRUE(all.is_too_slow(begin + 20s));
}

}  // namespace
}  // namespace zot::test
