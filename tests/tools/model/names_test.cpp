// SPDX-License-Identifier: Apache-2.0
#include "tools/model/names.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace zotconf {
namespace {

TEST(CheckKey, TakesCharactersOfEachLength) {
  EXPECT_EQ(check_key("a\xc3\xa4\xe2\x82\xac\xf0\x90\x8d\x88"), "");
}

class ForeignBytes : public testing::TestWithParam<const char *> {};

TEST_P(ForeignBytes, AreNoKeyAndNoCluster) {
  EXPECT_EQ(check_key(GetParam()), "is not UTF-8");
  EXPECT_EQ(check_cluster(GetParam()), "is not UTF-8");
}

INSTANTIATE_TEST_SUITE_P(Table, ForeignBytes,
                         testing::Values("a\xff",               // not a first byte
                                         "\xe2\x82",            // truncated
                                         "\xe0\x80\xaf",        // overlong
                                         "\xf0\x80\x80\xaf",    // overlong
                                         "\xed\xa0\x80",        // a surrogate
                                         "\xf4\x90\x80\x80"));  // above the last code point

TEST(ParseVersion, TakesDigitsOnly) {
  EXPECT_EQ(parse_version("18446744073709551615"), UINT64_MAX);
  for (const char *const text : {"", "-1", "1 ", "0x1", "18446744073709551616"}) {
    EXPECT_FALSE(parse_version(text)) << text;
  }
}

}  // namespace
}  // namespace zotconf
