// SPDX-License-Identifier: Apache-2.0
#include "tools/element/backoff.hpp"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace zotconf {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr unsigned seeds = 200;

std::vector<milliseconds> pauses(backoff &drawn, int count) {
  std::vector<milliseconds> result;
  for (int at = 0; at < count; ++at) {
    result.push_back(drawn.next());
  }
  return result;
}

TEST(Backoff, DoublesItsBoundsUntilTheLongestPause) {
  const std::vector<milliseconds> low = {1s, 2s, 4s, 8s, 16s, 32s, 64s, 128s, 150s, 150s};
  const std::vector<milliseconds> high = {2s, 4s, 8s, 16s, 32s, 64s, 128s, 256s, 300s, 300s};
  for (unsigned seed = 0; seed < seeds; ++seed) {
    backoff drawn(1s, 5min, seed);
    const auto found = pauses(drawn, 10);
    for (size_t at = 0; at < found.size(); ++at) {
      EXPECT_GE(found[at], low[at]) << seed << ' ' << at;
      EXPECT_LE(found[at], high[at]) << seed << ' ' << at;
    }
  }
}

TEST(Backoff, DiffersFromOneElementToTheNext) {
  std::set<milliseconds> first;
  for (unsigned seed = 0; seed < seeds; ++seed) {
    first.insert(backoff(1s, 5min, seed).next());
  }
  EXPECT_GT(first.size(), seeds / 2);
  EXPECT_LT(*first.begin(), 1200ms);
  EXPECT_GT(*first.rbegin(), 1800ms);
}

TEST(Backoff, BeginsAnewAfterASuccess) {
  backoff drawn(1s, 5min, 1);
  pauses(drawn, 8);
  drawn.reset();
  EXPECT_LE(drawn.next(), 2s);
}

TEST(Backoff, StaysAtOnePauseWhenBothBoundsAreEqual) {
  backoff drawn(70ms, 70ms, 1);
  EXPECT_EQ(pauses(drawn, 3), (std::vector<milliseconds>{70ms, 70ms, 70ms}));
}

TEST(Backoff, StaysBetweenBoundsThatAreClose) {
  backoff drawn(1s, 1500ms, 1);
  for (const milliseconds pause : pauses(drawn, 20)) {
    EXPECT_GE(pause, 1s);
    EXPECT_LE(pause, 1500ms);
  }
}

}  // namespace
}  // namespace zotconf
