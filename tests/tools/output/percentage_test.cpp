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

TEST(Share, IsAPercentageInMillionths) {
  EXPECT_EQ(parse_share("0%"), 0U);
  EXPECT_EQ(parse_share("0.0001%"), 1U);
  EXPECT_EQ(parse_share("0.5%"), 5000U);
  EXPECT_EQ(parse_share("0.43%"), 4300U);
  EXPECT_EQ(parse_share("1%"), 10000U);
  EXPECT_EQ(parse_share("33.3333%"), 333333U);
  EXPECT_EQ(parse_share("100%"), whole_share);
  EXPECT_EQ(parse_share("100.0%"), whole_share);
}

TEST(Share, IsWrittenWithItsDecimalsOnly) {
  EXPECT_EQ(share_text(1), "0.0001%");
  EXPECT_EQ(share_text(4300), "0.43%");
  EXPECT_EQ(share_text(10000), "1%");
  EXPECT_EQ(share_text(50600), "5.06%");
  EXPECT_EQ(share_text(whole_share), "100%");
}

TEST(Share, IsReadAsItIsWritten) {
  for (uint32_t share = 0; share <= whole_share; share += 37) {
    ASSERT_EQ(parse_share(share_text(share)), share);
  }
}

class ShareRefused : public testing::TestWithParam<const char *> {};

TEST_P(ShareRefused, IsNothing) {
  EXPECT_FALSE(parse_share(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Words, ShareRefused,
                         testing::Values("", "%", "50", "0.5", ".5%", "5.%", ".%", "1.-5%", "-1%",
                                         "+1%", "1.23456%", "100.0001%", "101%", "1,5%", "1.2.3%",
                                         "5 %", "5%%", "0x1%", "42949673%", "half%"));

}  // namespace
}  // namespace zotconf
