// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/model/parsed_k.hpp"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace {

constexpr const char *text = R"({"name":"text"})";

const char *name_in(const zot_parsed_k &parsed) {
  return cJSON_GetStringValue(cJSON_GetObjectItem(parsed.tree, "name"));
}

TEST(ParsedK, HoldsTheTreeOfItsText) {
  const zot::parsed_k parsed = zot::parse_k(text, nullptr);
  ASSERT_NE(parsed, nullptr);
  EXPECT_STREQ(name_in(*parsed), "text");
  EXPECT_STREQ(parsed->checksum, "");
}

TEST(ParsedK, KeepsTheChecksumThatItsTextHas) {
  const std::string checksum(64, 'a');
  EXPECT_EQ(zot::parse_k(text, checksum.c_str())->checksum, checksum);
}

TEST(ParsedK, KeepsNoMoreOfALineThanAChecksum) {
  const std::string checksum(64, 'a');
  EXPECT_EQ(zot::parse_k(text, (checksum + "\n").c_str())->checksum, checksum);
}

TEST(ParsedK, OfNoJsonIsNone) {
  EXPECT_EQ(zot::parse_k("{", nullptr), nullptr);
}

TEST(ParsedK, OfNobodyHasNoOwner) {
  EXPECT_EQ(zot::share(static_cast<zot_parsed_k *>(nullptr)), nullptr);
  zot::release_parsed(nullptr);
}

// Owners that are released one after the other, in every possible order.
class ThreeOwners : public testing::TestWithParam<std::vector<size_t>> {};

TEST_P(ThreeOwners, TheTreeLivesUntilTheLastIsGone) {
  std::array<zot::parsed_k, 3> owners;
  owners[0] = zot::parse_k(text, nullptr);
  owners[1] = zot::share(owners[0].get());
  owners[2] = zot::share(owners[1].get());
  const std::vector<size_t> &order = GetParam();
  for (size_t gone = 0; gone < owners.size(); ++gone) {
    EXPECT_STREQ(name_in(*owners[order.back()]), "text");
    owners[order[gone]].reset();
  }
}

INSTANTIATE_TEST_SUITE_P(EveryOrder, ThreeOwners,
                         testing::Values(std::vector<size_t>{0, 1, 2}, std::vector<size_t>{0, 2, 1},
                                         std::vector<size_t>{1, 0, 2}, std::vector<size_t>{1, 2, 0},
                                         std::vector<size_t>{2, 0, 1},
                                         std::vector<size_t>{2, 1, 0}));

TEST(ParsedK, OfOneOwnerMayBeSharedAgain) {
  zot::parsed_k parsed = zot::parse_k(text, nullptr);
  zot::parsed_k other = zot::share(parsed.get());
  other.reset();
  other = zot::share(parsed.get());
  parsed.reset();
  EXPECT_STREQ(name_in(*other), "text");
}

TEST(ParsedK, OfARecordGivesWayToTheNext) {
  const zot::parsed_k first = zot::parse_k(text, nullptr);
  zot_k k{};
  zot::keep_parsed(k, zot::share(first.get()), nullptr);
  EXPECT_EQ(first->owners, 2U);
  zot::keep_parsed(k, zot::parse_k(text, nullptr), nullptr);
  EXPECT_EQ(first->owners, 1U);
  EXPECT_NE(k.json, first->tree);
  zot::drop_parsed(k);
}

}  // namespace
