// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "utilities/gpb_path.hpp"
#include "zot_conf.h"

namespace {

struct meta {
  int result = 99;
  int32_t category = 99;
  std::string key;
  uint64_t version = 99;
  std::string cat;
};

meta meta_of(const char *path) {
  meta all;
  std::array<char, ZOT_KEY_LEN + 1> key{};
  std::array<char, 64> cat{};
  all.result = get_gpb_meta_by_path(path, &all.category, key.data(), key.size(), &all.version,
                                    cat.data(), cat.size());
  all.key = key.data();
  all.cat = cat.data();
  return all;
}

TEST(SubsystemName, KnowsTheThreeSubsystems) {
  EXPECT_STREQ(get_subsys_str_by_enum(0), "AP");
  EXPECT_STREQ(get_subsys_str_by_enum(1), "CP");
  EXPECT_STREQ(get_subsys_str_by_enum(2), "DP");
}

TEST(SubsystemName, AnyOtherValueHasNone) {
  EXPECT_EQ(get_subsys_str_by_enum(3), nullptr);
  EXPECT_EQ(get_subsys_str_by_enum(-1), nullptr);
}

TEST(CategoryName, NumbersOfTheInterfaceKeepTheirNames) {
  const std::vector<std::pair<int32_t, std::string>> known = {
      {1, "Ap"},    {2, "ApGroup"}, {4, "Cluster"},    {6, "Dp"},    {14, "System"}, {15, "Tenant"},
      {17, "User"}, {18, "Wlan"},   {19, "WlanGroup"}, {20, "Zone"}, {52, "OrbCert"}};
  for (const auto &[value, name] : known) {
    EXPECT_EQ(std::string(get_cat_str_by_gpb_cat(value)), name);
  }
}

TEST(CategoryName, EveryValueFrom0To79HasANameOfItsOwn) {
  std::set<std::string> names;
  for (int32_t value = 0; value < 80; ++value) {
    const char *const name = get_cat_str_by_gpb_cat(value);
    ASSERT_NE(name, nullptr) << value;
    EXPECT_TRUE(names.insert(name).second) << name;
    for (const char *at = name; *at != '\0'; ++at) {
      EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(*at))) << name;
    }
  }
}

TEST(CategoryName, ValuesOutsideTheTableHaveNone) {
  for (const int32_t value : {80, -1, 1000, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(get_cat_str_by_gpb_cat(value), nullptr) << value;
  }
}

TEST(CategoryOfName, FindsEveryNameOfTheTable) {
  for (int32_t value = 0; value < ZOT_CAT_COUNT; ++value) {
    int32_t found = -1;
    EXPECT_EQ(get_gpb_cat_by_cat_str(get_cat_str_by_gpb_cat(value), &found), 0);
    EXPECT_EQ(found, value);
  }
}

TEST(CategoryOfName, WlanIs18) {
  int32_t found = -1;
  EXPECT_EQ(get_gpb_cat_by_cat_str("Wlan", &found), 0);
  EXPECT_EQ(found, 18);
}

TEST(CategoryOfName, LetterCaseCounts) {
  int32_t found = -1;
  EXPECT_EQ(get_gpb_cat_by_cat_str("WLAN", &found), 1);
  EXPECT_EQ(found, -1);
}

TEST(CategoryOfName, UnknownNamesAreOne) {
  for (const char *name : {"Wla", "Wlans", " Wlan", "x"}) {
    int32_t found = -1;
    EXPECT_EQ(get_gpb_cat_by_cat_str(name, &found), 1) << name;
  }
}

TEST(CategoryOfName, MissingArgumentsAreRefused) {
  int32_t found = -1;
  EXPECT_EQ(get_gpb_cat_by_cat_str(nullptr, &found), -1);
  EXPECT_EQ(get_gpb_cat_by_cat_str("", &found), -1);
  EXPECT_EQ(get_gpb_cat_by_cat_str("Wlan", nullptr), -1);
}

TEST(GpbMeta, SplitsAPath) {
  const meta found = meta_of("/Wlan/guest/0x10");
  EXPECT_EQ(found.result, 0);
  EXPECT_EQ(found.category, 18);
  EXPECT_EQ(found.key, "guest");
  EXPECT_EQ(found.version, 16U);
  EXPECT_EQ(found.cat, "Wlan");
}

TEST(GpbMeta, ReadsTheVersionByItsBase) {
  const std::vector<std::pair<std::string, uint64_t>> cases = {{"12", 12},
                                                               {"010", 8},
                                                               {"0x10", 16},
                                                               {"0XfF", 255},
                                                               {"0", 0},
                                                               {"12abc", 12},
                                                               {"text", 0},
                                                               {"18446744073709551615", UINT64_MAX},
                                                               {"0x8000000000000000", 1ULL << 63}};
  for (const auto &[text, version] : cases) {
    const meta found = meta_of(("/Wlan/guest/" + text).c_str());
    EXPECT_EQ(found.result, 0) << text;
    EXPECT_EQ(found.version, version) << text;
  }
}

TEST(GpbMeta, RefusesAPathWithoutThreeComponents) {
  for (const char *path : {"Wlan/guest/1", "/Wlan//1", "/Wlan/guest/", "/Wlan/guest", "/Wlan", "/",
                           "", "//Wlan/guest/1", "/Wlan/guest//1", "text"}) {
    EXPECT_EQ(meta_of(path).result, -1) << path;
  }
}

TEST(GpbMeta, WhatFollowsTheThirdComponentIsIgnored) {
  for (const char *path : {"/Wlan/guest/1/", "/Wlan/guest/1/2", "/Wlan/guest/1//x/y"}) {
    const meta found = meta_of(path);
    EXPECT_EQ(found.result, 0) << path;
    EXPECT_EQ(found.version, 1U) << path;
  }
}

TEST(GpbMeta, UnknownCategoryIsOneWithTheRestFilled) {
  const meta found = meta_of("/WLAN/guest/7");
  EXPECT_EQ(found.result, 1);
  EXPECT_EQ(found.category, 99);
  EXPECT_EQ(found.key, "guest");
  EXPECT_EQ(found.version, 7U);
  EXPECT_EQ(found.cat, "WLAN");
}

TEST(GpbMeta, CutsAKeyToTheCallersBuffer) {
  char key[4] = "###";
  char cat[8] = {};
  uint64_t version = 0;
  EXPECT_EQ(get_gpb_meta_str("/Wlan/guest/1", cat, sizeof cat, key, sizeof key, &version), cat);
  EXPECT_STREQ(key, "gue");
}

TEST(GpbMeta, CutsACategoryNameToTheCallersBuffer) {
  char key[8] = {};
  char cat[3] = {};
  uint64_t version = 0;
  EXPECT_EQ(get_gpb_meta_str("/Wlan/guest/1", cat, sizeof cat, key, sizeof key, &version), cat);
  EXPECT_STREQ(cat, "Wl");
}

TEST(GpbMeta, KeepsAtMost52CharactersOfAKey) {
  const std::string longest(ZOT_KEY_LEN, 'k');
  char key[100] = {};
  char cat[8] = {};
  uint64_t version = 0;
  const std::string path = "/Wlan/" + longest + "12345678/9";
  EXPECT_EQ(get_gpb_meta_str(path.c_str(), cat, sizeof cat, key, sizeof key, &version), cat);
  EXPECT_EQ(std::string(key), longest);
  EXPECT_EQ(version, 9U);
}

TEST(GpbMeta, KeepsAtMost254CharactersOfTheOtherComponents) {
  char key[8] = {};
  char cat[400] = {};
  uint64_t version = 0;
  const std::string path = "/" + std::string(300, 'C') + "/k/" + std::string(253, '0') + "17";
  EXPECT_EQ(get_gpb_meta_str(path.c_str(), cat, sizeof cat, key, sizeof key, &version), cat);
  EXPECT_EQ(std::string(cat), std::string(254, 'C'));
  EXPECT_EQ(version, 1U);
}

TEST(GpbMeta, MissingArgumentsAreRefused) {
  int32_t category = 0;
  uint64_t version = 0;
  char key[8] = {};
  char cat[8] = {};
  const char *const path = "/Wlan/guest/1";
  EXPECT_EQ(get_gpb_meta_by_path(nullptr, &category, key, 8, &version, cat, 8), -1);
  EXPECT_EQ(get_gpb_meta_by_path(path, nullptr, key, 8, &version, cat, 8), -1);
  EXPECT_EQ(get_gpb_meta_by_path(path, &category, nullptr, 8, &version, cat, 8), -1);
  EXPECT_EQ(get_gpb_meta_by_path(path, &category, key, 8, nullptr, cat, 8), -1);
  EXPECT_EQ(get_gpb_meta_by_path(path, &category, key, 8, &version, nullptr, 8), -1);
}

TEST(GpbMeta, BuffersWithoutRoomAreRefused) {
  uint64_t version = 0;
  char key[8] = "key";
  char cat[8] = "cat";
  EXPECT_EQ(get_gpb_meta_str("/Wlan/guest/1", cat, 0, key, sizeof key, &version), nullptr);
  EXPECT_EQ(get_gpb_meta_str("/Wlan/guest/1", cat, sizeof cat, key, 0, &version), nullptr);
  EXPECT_STREQ(key, "key");
  EXPECT_STREQ(cat, "cat");
}

TEST(CategoryOf, FindsEveryNameOfTheTable) {
  for (int32_t value = 0; value < ZOT_CAT_COUNT; ++value) {
    EXPECT_EQ(zot::category_of(get_cat_str_by_gpb_cat(value)), value);
  }
}

TEST(CategoryOf, TakesANameThatIsNotTerminated) {
  const std::string_view path = "Wlan/guest/1";
  EXPECT_EQ(zot::category_of({path.data(), 4}), ZOT_CAT_WLAN);
}

TEST(CategoryOf, FindsNoNameInAnotherCase) {
  for (int32_t value = 0; value < ZOT_CAT_COUNT; ++value) {
    std::string name = get_cat_str_by_gpb_cat(value);
    for (char &letter : name) {
      letter = static_cast<char>(letter ^ 0x20);
      EXPECT_EQ(zot::category_of(name), std::nullopt) << name;
      letter = static_cast<char>(letter ^ 0x20);
    }
  }
}

bool is_category(const std::string &name) {
  for (int32_t value = 0; value < ZOT_CAT_COUNT; ++value) {
    if (name == get_cat_str_by_gpb_cat(value)) {
      return true;
    }
  }
  return false;
}

// "Ap" is the beginning of "ApGroup", but also a category.
TEST(CategoryOf, FindsNoBeginningOfAName) {
  for (int32_t value = 0; value < ZOT_CAT_COUNT; ++value) {
    const std::string name = get_cat_str_by_gpb_cat(value);
    for (size_t length = 0; length < name.size(); ++length) {
      const std::string start = name.substr(0, length);
      EXPECT_EQ(zot::category_of(start).has_value(), is_category(start)) << start;
    }
  }
}

TEST(CategoryOf, FindsNoNameThatIsLonger) {
  for (int32_t value = 0; value < ZOT_CAT_COUNT; ++value) {
    for (const char *const more : {"s", "X", " ", "/"}) {
      const std::string name = std::string(get_cat_str_by_gpb_cat(value)) + more;
      EXPECT_EQ(zot::category_of(name), std::nullopt) << name;
    }
  }
}

TEST(CategoryOf, FindsNothingElse) {
  for (const std::string_view name :
       {std::string_view(""), std::string_view("A"), std::string_view("Q"),
        std::string_view(" Wlan"), std::string_view("@Wlan"), std::string_view("[Wlan"),
        std::string_view("\xc3\x84p"), std::string_view("Wlan\0", 5), std::string_view("\0", 1),
        std::string_view("18")}) {
    EXPECT_EQ(zot::category_of(name), std::nullopt) << name;
  }
}

TEST(SplitGpbPath, PartsStandInThePath) {
  const char *const path = "/Wlan/guest/0x10";
  const std::optional<zot::gpb_path> parts = zot::split_gpb_path(path);
  ASSERT_TRUE(parts.has_value());
  EXPECT_EQ(parts->category, "Wlan");
  EXPECT_EQ(parts->category.data(), path + 1);
  EXPECT_EQ(parts->key, "guest");
  EXPECT_EQ(parts->key.data(), path + 6);
  EXPECT_EQ(parts->version, 16U);
}

struct accepted_path {
  std::string path;
  std::string category;
  std::string key;
  uint64_t version;
};

TEST(SplitGpbPath, TakesThreeComponentsWhateverTheyAre) {
  const std::vector<accepted_path> cases = {
      {"/a/b/1", "a", "b", 1},
      {"/Starship/enterprise/1701", "Starship", "enterprise", 1701},
      {"/Wlan/a b/1", "Wlan", "a b", 1},
      {"/Wlan/../7", "Wlan", "..", 7},
      {"/Wlan/guest/..", "Wlan", "guest", 0},
      {"/Wlan/guest/1/", "Wlan", "guest", 1},
      {"/Wlan/guest/1/2", "Wlan", "guest", 1},
      {"/Wlan/guest/1//", "Wlan", "guest", 1},
      {"/Wlan/\xc3\xa9/1", "Wlan", "\xc3\xa9", 1},
      {"/Wlan/" + std::string(52, 'k') + "/1", "Wlan", std::string(52, 'k'), 1},
      {"/Wlan/" + std::string(53, 'k') + "/1", "Wlan", std::string(52, 'k'), 1},
      {"/Wlan/" + std::string(4000, 'k') + "/1", "Wlan", std::string(52, 'k'), 1},
      {"/" + std::string(300, 'C') + "/b/1", std::string(300, 'C'), "b", 1}};
  for (const accepted_path &expected : cases) {
    const std::optional<zot::gpb_path> parts = zot::split_gpb_path(expected.path.c_str());
    ASSERT_TRUE(parts.has_value()) << expected.path;
    EXPECT_EQ(parts->category, expected.category) << expected.path;
    EXPECT_EQ(parts->key, expected.key) << expected.path;
    EXPECT_EQ(parts->version, expected.version) << expected.path;
  }
}

TEST(SplitGpbPath, RefusesAPathWithoutThreeComponents) {
  for (const char *path : {"", "/", "//", "///", "text", "Wlan/guest/1", " /Wlan/guest/1", "/Wlan",
                           "/Wlan/", "/Wlan/guest", "/Wlan/guest/", "/Wlan//1", "//guest/1",
                           "//Wlan/guest/1", "/Wlan/guest//1", "/Wlan//guest/1"}) {
    EXPECT_EQ(zot::split_gpb_path(path).has_value(), false) << path;
  }
}

struct version_text {
  std::string text;
  int base;
};

TEST(SplitGpbPath, ReadsAVersionAsItsPrefixSays) {
  const std::vector<version_text> cases = {
      {"0", 10},
      {"1", 10},
      {"9", 10},
      {"10", 10},
      {"4294967296", 10},
      // Digits that always fit, digits that may fit, and digits that never fit.
      {std::string(17, '9'), 10},
      {std::string(18, '9'), 10},
      {"100000000000000000", 10},
      {std::string(19, '9'), 10},
      {"9223372036854775808", 10},
      {"18446744073709551615", 10},
      {"18446744073709551616", 10},
      {std::string(20, '9'), 10},
      {std::string(30, '9'), 10},
      {"1" + std::string(29, '0'), 10},
      {"00", 8},
      {"007", 8},
      {"010", 8},
      {"08", 8},
      {"0777777777777777777777", 8},
      {std::string(20, '0') + "7", 8},
      {std::string(30, '0'), 8},
      {"0b1", 8},
      {"0x1F", 16},
      {"0X1f", 16},
      {"0x", 16},
      {"0xg", 16},
      {"0x00000000000000000000001", 16},
      {"0xffffffffffffffff", 16},
      {"0x10000000000000000", 16},
      {"0xFFFFFFFFFFFFFFFFFF", 16},
      {"+5", 10},
      {"-1", 10},
      {"-5", 10},
      {"+-5", 10},
      {"-", 10},
      {"+010", 10},
      {" 7", 10},
      {"\t7", 10},
      {"7 ", 10},
      {"1 2", 10},
      {" 010", 10},
      {" ", 10},
      {"12abc", 10},
      {"1x", 10},
      {"1.5", 10},
      {"1e3", 10},
      {"f", 10},
      {"text", 10},
      {":", 10},
      {"1\xc3\xa9", 10}};
  for (const version_text &version : cases) {
    const std::string path = "/Wlan/guest/" + version.text;
    const std::optional<zot::gpb_path> parts = zot::split_gpb_path(path.c_str());
    ASSERT_TRUE(parts.has_value()) << path;
    EXPECT_EQ(parts->version, std::strtoull(version.text.c_str(), nullptr, version.base)) << path;
  }
}

TEST(SplitGpbPath, VersionEndsAtTheNextSlash) {
  EXPECT_EQ(zot::split_gpb_path("/Wlan/guest/12/34")->version, 12U);
  EXPECT_EQ(zot::split_gpb_path("/Wlan/guest/012/34")->version, 10U);
  EXPECT_EQ(zot::split_gpb_path("/Wlan/guest/123456789012345678/9")->version, 123456789012345678U);
}

TEST(CmpInt, IsSigned) {
  EXPECT_EQ(cmp_int(1, 2), -1);
  EXPECT_EQ(cmp_int(2, 1), 1);
  EXPECT_EQ(cmp_int(7, 7), 0);
  EXPECT_EQ(cmp_int(-1, 1), -1);
  EXPECT_EQ(cmp_int(INT32_MIN, INT32_MAX), -1);
  EXPECT_EQ(cmp_int(INT32_MAX, INT32_MIN), 1);
}

TEST(CmpUint64, IsUnsignedAcrossBothHalves) {
  constexpr uint64_t top_bit = 1ULL << 63;
  EXPECT_EQ(cmp_uint64(1, top_bit), -1);
  EXPECT_EQ(cmp_uint64(top_bit, 1), 1);
  EXPECT_EQ(cmp_uint64(top_bit, top_bit), 0);
  EXPECT_EQ(cmp_uint64(0x1'0000'0000, 0xffff'ffff), 1);
}

}  // namespace
