// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/schedule.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

namespace zotconf {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr unsigned elements = 2000;
const sync_round good = {.result = round_result::unchanged};
const sync_round bad = {.result = round_result::failed, .wrong = "no answer"};

milliseconds at_first(schedule &when) {
  return when.first();
}

milliseconds after_success(schedule &when) {
  return when.after(good);
}

milliseconds after_failure(schedule &when) {
  return when.after(bad);
}

sync_round come_back_after(std::chrono::seconds pause) {
  return {.result = round_result::failed, .wrong = "busy", .retry_after = pause};
}

// The pauses of a fleet, in ascending order.
std::vector<milliseconds> of_all(milliseconds every,
                                 const std::function<milliseconds(schedule &)> &draw,
                                 unsigned jitter = 10) {
  std::vector<milliseconds> pauses;
  for (unsigned seed = 0; seed < elements; ++seed) {
    schedule when(every, seed, jitter);
    pauses.push_back(draw(when));
  }
  std::ranges::sort(pauses);
  return pauses;
}

// Expects that each tenth of the range has about a tenth of the pauses, and that none is outside.
void expect_even(const std::vector<milliseconds> &pauses, milliseconds low, milliseconds high) {
  EXPECT_GE(pauses.front(), low);
  EXPECT_LE(pauses.back(), high);
  for (int tenth = 0; tenth < 10; ++tenth) {
    const milliseconds begin = low + (high - low) * tenth / 10;
    const milliseconds end = low + (high - low) * (tenth + 1) / 10;
    const auto count =
        std::ranges::lower_bound(pauses, end) - std::ranges::lower_bound(pauses, begin);
    EXPECT_GT(count, elements / 20) << tenth;
    EXPECT_LT(count, elements / 5) << tenth;
  }
}

TEST(Schedule, SpreadsTheFirstRoundsOfAFleetOverTheWholePeriod) {
  expect_even(of_all(30s, at_first), 0ms, 30s);
}

TEST(Schedule, WaitsForThePeriodMoreOrLessByATenthAfterASuccess) {
  expect_even(of_all(30s, after_success), 27s, 33s);
  expect_even(
      of_all(1h, [](schedule &when) { return when.after({.result = round_result::updated}); }),
      54min, 66min);
}

TEST(Schedule, VariesThePauseByTheJitter) {
  expect_even(of_all(30s, after_success, 50), 15s, 45s);
}

TEST(Schedule, SpreadsTheFirstRoundsOverTheWholePeriodWithTheLeastJitterToo) {
  expect_even(of_all(30s, at_first, 1), 0ms, 30s);
}

TEST(Schedule, AsksAtOnceAndThenExactlyAfterThePeriodWithoutJitter) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    schedule when(30s, seed, 0);
    EXPECT_EQ(when.first(), 0ms);
    EXPECT_EQ(when.after(good), 30s);
    EXPECT_EQ(when.after(good), 30s);
  }
}

TEST(Schedule, SpreadsTheRetriesOfAFleetWithoutJitterToo) {
  expect_even(of_all(30s, after_failure, 0), 1s, 2s);
}

TEST(Schedule, DrawsAnotherPauseAfterEachRound) {
  schedule when(1h, 1);
  std::vector<milliseconds> pauses;
  for (int round = 0; round < 20; ++round) {
    pauses.push_back(when.after(good));
  }
  std::ranges::sort(pauses);
  EXPECT_EQ(std::ranges::adjacent_find(pauses), pauses.end());
}

TEST(Schedule, GrowsThePausesAfterFailuresUpToFiveMinutes) {
  const std::vector<milliseconds> low = {1s, 2s, 4s, 8s, 16s, 32s, 64s, 128s, 150s, 150s};
  const std::vector<milliseconds> high = {2s, 4s, 8s, 16s, 32s, 64s, 128s, 256s, 5min, 5min};
  for (unsigned seed = 0; seed < 200; ++seed) {
    schedule when(30s, seed);
    for (size_t round = 0; round < low.size(); ++round) {
      const milliseconds pause = when.after(bad);
      EXPECT_GE(pause, low[round]) << seed << ' ' << round;
      EXPECT_LE(pause, high[round]) << seed << ' ' << round;
    }
  }
}

TEST(Schedule, SpreadsTheRetriesOfAFleet) {
  expect_even(of_all(30s, after_failure), 1s, 2s);
  expect_even(of_all(30s,
                     [](schedule &when) {
                       for (int round = 0; round < 12; ++round) {
                         static_cast<void>(when.after(bad));
                       }
                       return when.after(bad);
                     }),
              150s, 5min);
}

TEST(Schedule, GrowsThePausesUpToAPeriodThatIsLonger) {
  schedule when(1h, 1);
  milliseconds pause{};
  for (int round = 0; round < 20; ++round) {
    pause = when.after(bad);
  }
  EXPECT_GE(pause, 30min);
  EXPECT_LE(pause, 1h);
}

TEST(Schedule, GrowsThePausesAfterARefusalToo) {
  schedule when(30s, 1);
  const sync_round refused = {.result = round_result::refused, .wrong = "K is not signed"};
  EXPECT_LE(when.after(refused), 2s);
  for (int round = 0; round < 10; ++round) {
    static_cast<void>(when.after(refused));
  }
  EXPECT_GE(when.after(refused), 150s);
}

void fail_often(schedule &when) {
  for (int round = 0; round < 12; ++round) {
    static_cast<void>(when.after(bad));
  }
}

TEST(Schedule, StartsWithShortPausesAgainAfterASuccess) {
  schedule when(30s, 1);
  fail_often(when);
  static_cast<void>(when.after(good));
  EXPECT_LE(when.after(bad), 2s);
}

TEST(Schedule, StartsWithShortPausesAgainWhenFilesHaveArrived) {
  schedule when(30s, 1);
  fail_often(when);
  sync_round round = bad;
  round.has_progressed = true;
  EXPECT_LE(when.after(round), 2s);
}

TEST(Schedule, WaitsAtLeastAsLongAsTheServerAsks) {
  // Half of what is asked, but no more than a period, is spread on top.
  expect_even(of_all(30s, [](schedule &when) { return when.after(come_back_after(20s)); }), 20s,
              30s);
  expect_even(of_all(30s, [](schedule &when) { return when.after(come_back_after(120s)); }), 120s,
              150s);
}

TEST(Schedule, WaitsLongerThanTheLongestPauseIfTheServerAsks) {
  expect_even(of_all(30s, [](schedule &when) { return when.after(come_back_after(3600s)); }), 3600s,
              3630s);
}

TEST(Schedule, DoesNotComeBackEarlierThanAfterAFailureWithoutAWord) {
  schedule when(30s, 1);
  fail_often(when);
  EXPECT_GE(when.after(come_back_after(0s)), 150s);
  EXPECT_GE(when.after(come_back_after(1s)), 150s);
}

}  // namespace
}  // namespace zotconf
