// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "zot_conf.h"

namespace {

TEST(Catset, SetAllSetsTheEightyCategories) {
  zot_catset catset{};
  EXPECT_EQ(zot_catset_set_all(&catset), 0);
  zot_catset wanted{};
  wanted.word[0] = 0xffffffffU;
  wanted.word[1] = 0xffffffffU;
  wanted.word[2] = 0x0000ffffU;
  EXPECT_EQ(std::memcmp(&catset, &wanted, sizeof wanted), 0);
}

TEST(Catset, SetAllKeepsWhatIsSet) {
  zot_catset catset{};
  catset.word[2] = 0x80000000U;
  catset.word[31] = 1;
  zot_catset_set_all(&catset);
  EXPECT_EQ(catset.word[2], 0x8000ffffU);
  EXPECT_EQ(catset.word[31], 1U);
}

TEST(Catset, SetAllNeedsASet) {
  EXPECT_EQ(zot_catset_set_all(nullptr), ZOT_ERR_NULL_INPUT);
}

class CatsetMember : public testing::TestWithParam<std::pair<int, std::pair<int, uint32_t>>> {};

TEST_P(CatsetMember, IsOneBit) {
  const auto &[category, place] = GetParam();
  zot_catset catset{};
  EXPECT_FALSE(zot_catset_has(&catset, category));
  EXPECT_EQ(zot_catset_add(&catset, category), 0);
  EXPECT_EQ(catset.word[place.first], place.second);
  EXPECT_TRUE(zot_catset_has(&catset, category));
}

INSTANTIATE_TEST_SUITE_P(Places, CatsetMember,
                         testing::Values(std::pair{0, std::pair{0, 1U}},
                                         std::pair{18, std::pair{0, 1U << 18}},
                                         std::pair{31, std::pair{0, 1U << 31}},
                                         std::pair{32, std::pair{1, 1U}},
                                         std::pair{79, std::pair{2, 1U << 15}}));

class CatsetStranger : public testing::TestWithParam<int> {};

TEST_P(CatsetStranger, IsRefused) {
  zot_catset catset{};
  EXPECT_EQ(zot_catset_add(&catset, GetParam()), ZOT_ERR_WRONG_INPUT);
  const zot_catset empty{};
  EXPECT_EQ(std::memcmp(&catset, &empty, sizeof empty), 0);
  std::memset(&catset, 0xff, sizeof catset);
  EXPECT_FALSE(zot_catset_has(&catset, GetParam()));
}

INSTANTIATE_TEST_SUITE_P(NoCategory, CatsetStranger, testing::Values(-1, 80, 1023, 1024));

TEST(Catset, AddAndHasNeedASet) {
  EXPECT_EQ(zot_catset_add(nullptr, 1), ZOT_ERR_NULL_INPUT);
  EXPECT_FALSE(zot_catset_has(nullptr, 1));
}

}  // namespace
