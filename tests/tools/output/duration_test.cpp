// SPDX-License-Identifier: Apache-2.0
#include "tools/output/duration.hpp"

#include <gtest/gtest.h>

namespace zotconf {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

TEST(Duration, IsANumberWithAUnit) {
  EXPECT_EQ(parse_duration("500ms"), 500ms);
  EXPECT_EQ(parse_duration("30s"), 30s);
  EXPECT_EQ(parse_duration("5m"), 5min);
  EXPECT_EQ(parse_duration("1h"), 1h);
  EXPECT_EQ(parse_duration("8760h"), 8760h);
  EXPECT_EQ(parse_duration("30d"), 720h);
  EXPECT_EQ(check_duration("1ms"), "");
}

class DurationRefused : public testing::TestWithParam<const char *> {};

TEST_P(DurationRefused, IsNothing) {
  EXPECT_FALSE(parse_duration(GetParam()));
  EXPECT_NE(check_duration(GetParam()), "");
}

INSTANTIATE_TEST_SUITE_P(Words, DurationRefused,
                         testing::Values("", "30", "s", "ms", "0s", "-1s", "+1s", "1.5s", "1 s",
                                         " 1s", "1s ", "1S", "1w", "1h30m", "8761h", "366d",
                                         "9223372036854775807h", "9223372036854775808ms"));

TEST(Duration, IsToldShortly) {
  EXPECT_EQ(duration_text(7ms), "7ms");
  EXPECT_EQ(duration_text(1s), "1s");
  EXPECT_EQ(duration_text(1290ms), "1.2s");
  EXPECT_EQ(duration_text(30s), "30s");
  EXPECT_EQ(duration_text(90s), "1m30s");
  EXPECT_EQ(duration_text(5min), "5m");
  EXPECT_EQ(duration_text(90min + 10s), "1h30m");
  EXPECT_EQ(duration_text(2h), "2h");
  EXPECT_EQ(duration_text(24h + 59min), "1d");
  EXPECT_EQ(duration_text(50h), "2d2h");
}

}  // namespace
}  // namespace zotconf
