// SPDX-License-Identifier: Apache-2.0
#include "tools/output/percentage.hpp"

#include <gtest/gtest.h>

namespace zotconf {
namespace {

TEST(Percentage, IsANumberWithOrWithoutItsSign) {
  EXPECT_EQ(parse_percentage("0%"), 0U);
  EXPECT_EQ(parse_percentage("50%"), 50U);
  EXPECT_EQ(parse_percentage("7"), 7U);
  EXPECT_EQ(parse_percentage("100"), 100U);
  EXPECT_EQ(check_percentage("100%"), "");
}

class PercentageRefused : public testing::TestWithParam<const char *> {};

TEST_P(PercentageRefused, IsNothing) {
  EXPECT_FALSE(parse_percentage(GetParam()));
  EXPECT_NE(check_percentage(GetParam()), "");
}

INSTANTIATE_TEST_SUITE_P(Words, PercentageRefused,
                         testing::Values("", "%", "101", "101%", "-1", "+1", "50%%", "50 %", "1.5%",
                                         "half", "4294967297"));

}  // namespace
}  // namespace zotconf
