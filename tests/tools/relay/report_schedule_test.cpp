// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/report_schedule.hpp"

#include <gtest/gtest.h>

#include <set>

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::report_schedule;
using clock = report_schedule::clock;

constexpr unsigned seeds = 200;

// A point in time that is later than any pause.
clock::time_point begin() {
  return clock::time_point(1000h);
}

TEST(ReportSchedule, NothingIsDueBeforeTheFirstReport) {
  const report_schedule plan({}, 1);
  EXPECT_FALSE(plan.is_pending());
  EXPECT_EQ(plan.due(), clock::time_point::max());
}

TEST(ReportSchedule, TheFirstReportAndEachChangeAreDueAtOnce) {
  report_schedule plan({}, 1);
  plan.change();
  EXPECT_LE(plan.due(), begin());
  plan.begin();
  plan.succeed(begin());
  EXPECT_FALSE(plan.is_pending());
  plan.change();
  EXPECT_LE(plan.due(), begin());
}

TEST(ReportSchedule, WithoutAChangeTheNextOneIsDueADayLaterMoreOrLessByATenth) {
  std::set<clock::duration> pauses;
  for (unsigned seed = 0; seed < seeds; ++seed) {
    report_schedule plan({}, seed);
    plan.change();
    plan.begin();
    plan.succeed(begin());
    const auto pause = plan.due() - begin();
    EXPECT_GE(pause, 24h - 144min);
    EXPECT_LE(pause, 24h + 144min);
    pauses.insert(pause);
  }
  EXPECT_GT(pauses.size(), seeds / 2);
}

TEST(ReportSchedule, AfterFailuresThePausesGrowFromAMinuteToAnHour) {
  for (unsigned seed = 0; seed < seeds; ++seed) {
    report_schedule plan({}, seed);
    plan.change();
    clock::duration longest{};
    for (int attempt = 0; attempt < 12; ++attempt) {
      plan.begin();
      plan.fail(begin(), std::nullopt);
      EXPECT_TRUE(plan.is_pending());
      const auto pause = plan.due() - begin();
      EXPECT_GE(pause, 1min);
      EXPECT_LE(pause, attempt == 0 ? clock::duration(2min) : clock::duration(1h));
      longest = std::max(longest, pause);
    }
    EXPECT_GE(longest, 30min);
  }
}

TEST(ReportSchedule, AChangeDoesNotShortenThePauseAfterAFailure) {
  report_schedule plan({}, 1);
  plan.change();
  plan.begin();
  plan.fail(begin(), std::nullopt);
  const auto due = plan.due();
  plan.change();
  EXPECT_EQ(plan.due(), due);
}

TEST(ReportSchedule, ASuccessShortensThePausesAgain) {
  report_schedule plan({}, 1);
  plan.change();
  for (int attempt = 0; attempt < 8; ++attempt) {
    plan.begin();
    plan.fail(begin(), std::nullopt);
  }
  plan.begin();
  plan.succeed(begin());
  plan.change();
  plan.begin();
  plan.fail(begin(), std::nullopt);
  EXPECT_LE(plan.due() - begin(), 2min);
}

TEST(ReportSchedule, WaitsAtLeastAsLongAsTheReceiverAsks) {
  std::set<clock::duration> pauses;
  for (unsigned seed = 0; seed < seeds; ++seed) {
    report_schedule plan({}, seed);
    plan.change();
    plan.begin();
    plan.fail(begin(), 24h);
    const auto pause = plan.due() - begin();
    EXPECT_GE(pause, 24h);
    EXPECT_LE(pause, 24h + 144min);
    pauses.insert(pause);
  }
  EXPECT_GT(pauses.size(), seeds / 2);
}

TEST(ReportSchedule, AShortWishOfTheReceiverDoesNotShortenThePause) {
  report_schedule plan({}, 1);
  plan.change();
  plan.begin();
  plan.fail(begin(), 1s);
  EXPECT_GE(plan.due() - begin(), 1min);
}

TEST(ReportSchedule, WhatChangesDuringAnAttemptIsDueAfterIt) {
  report_schedule plan({}, 1);
  plan.change();
  plan.begin();
  plan.change();
  plan.succeed(begin());
  EXPECT_TRUE(plan.is_pending());
  EXPECT_LE(plan.due(), begin());
}

}  // namespace
}  // namespace zot::test
