// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <numeric>
#include <string>

#include "tests/support/files.hpp"
#include "zot_conf.h"

namespace {

constexpr const char *digest_of_abc =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
using digest_text = std::array<char, ZOT_CHECKSUM_LEN + 1>;

TEST(Sha256HashStr, RendersTheBytesInOrderAndLowerCase) {
  std::array<unsigned char, 32> digest{};
  std::iota(digest.begin(), digest.end(), static_cast<unsigned char>(0xe8));
  digest_text text;
  text.fill('#');
  EXPECT_EQ(sha256_hash_str(digest.data(), text.data(), text.size()), text.data());
  EXPECT_STREQ(text.data(), "e8e9eaebecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff0001020304050607");
}

TEST(Sha256HashStr, RefusesABufferOf64Bytes) {
  const std::array<unsigned char, 32> digest{};
  digest_text text{'#'};
  EXPECT_EQ(sha256_hash_str(digest.data(), text.data(), 64), nullptr);
  EXPECT_EQ(text[0], '#');
}

TEST(Sha256HashStr, MissingArgumentsGiveNothing) {
  const std::array<unsigned char, 32> digest{};
  digest_text text{};
  EXPECT_EQ(sha256_hash_str(nullptr, text.data(), text.size()), nullptr);
  EXPECT_EQ(sha256_hash_str(digest.data(), nullptr, 65), nullptr);
}

TEST(CalcSha256, GivesTheKnownDigestOfAbc) {
  digest_text text{};
  EXPECT_EQ(calc_sha256("abc", 3, text.data(), text.size()), 0);
  EXPECT_STREQ(text.data(), digest_of_abc);
}

TEST(CalcSha256, HashesExactlyTheGivenLength) {
  digest_text text{};
  EXPECT_EQ(calc_sha256("abcdef", 3, text.data(), text.size()), 0);
  EXPECT_STREQ(text.data(), digest_of_abc);
}

TEST(CalcSha256, HashesLongDataWithZeroBytesInside) {
  std::string data(100000, 'x');
  data[1] = '\0';
  digest_text text{};
  EXPECT_EQ(calc_sha256(data.data(), static_cast<uint32_t>(data.size()), text.data(), text.size()),
            0);
  EXPECT_EQ(std::string(text.data()), zot::test::sha256_hex(data));
}

TEST(CalcSha256, RefusesAnOutputOf64Bytes) {
  digest_text text{'#'};
  EXPECT_EQ(calc_sha256("abc", 3, text.data(), 64), -1);
  EXPECT_EQ(text[0], '#');
}

TEST(CalcSha256, RefusesDataThatBeginsWithAZeroByte) {
  digest_text text{'#'};
  EXPECT_EQ(calc_sha256("\0abc", 4, text.data(), text.size()), -1);
  EXPECT_EQ(text[0], '#');
}

TEST(CalcSha256, RefusesMissingData) {
  digest_text text{};
  EXPECT_EQ(calc_sha256(nullptr, 3, text.data(), text.size()), -1);
}

TEST(CalcSha256, RefusesAMissingOutput) {
  EXPECT_EQ(calc_sha256("abc", 3, nullptr, ZOT_CHECKSUM_LEN + 1), -1);
}

TEST(CmpFileSha256, EqualDigestIsZero) {
  EXPECT_EQ(cmp_file_sha256("abc", 3, digest_of_abc), 0);
}

TEST(CmpFileSha256, CharactersBehindTheDigestDoNotCount) {
  EXPECT_EQ(cmp_file_sha256("abc", 3, (std::string(digest_of_abc) + " and more").c_str()), 0);
}

TEST(CmpFileSha256, UpperCaseNeverMatches) {
  std::string want(digest_of_abc);
  EXPECT_NE(cmp_file_sha256("abc", 3, str2upper(want.data())), 0);
}

TEST(CmpFileSha256, OtherDigestsDoNotMatch) {
  const std::string want(digest_of_abc);
  EXPECT_NE(cmp_file_sha256("abd", 3, digest_of_abc), 0);
  EXPECT_NE(cmp_file_sha256("abc", 3, want.substr(0, 63).c_str()), 0);
  EXPECT_NE(cmp_file_sha256("abc", 3, (want.substr(0, 63) + "e").c_str()), 0);
  EXPECT_NE(cmp_file_sha256("abc", 3, ""), 0);
}

TEST(CmpFileSha256, RefusesDataThatBeginsWithAZeroByte) {
  const std::string data("\0abc", 4);
  EXPECT_EQ(cmp_file_sha256(data.data(), 4, zot::test::sha256_hex(data).c_str()), -1);
}

TEST(CmpFileSha256, MissingArgumentsAreRefused) {
  EXPECT_EQ(cmp_file_sha256(nullptr, 3, digest_of_abc), -1);
  EXPECT_EQ(cmp_file_sha256("abc", 3, nullptr), -1);
}

}  // namespace
