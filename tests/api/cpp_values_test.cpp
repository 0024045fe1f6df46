// SPDX-License-Identifier: Apache-2.0
// The values of the C++ layer: statuses, categories and changes.
#include <gtest/gtest.h>

#include "zot_conf.hpp"

namespace {

using zotconf::category_set;
using zotconf::change;
using zotconf::status;

TEST(CppStatus, HasNameNumberAndText) {
  const status timeout(ZOT_ERR_TIMEOUT);
  EXPECT_EQ(timeout.code(), -11);
  EXPECT_EQ(timeout.name(), "ZOT_ERR_TIMEOUT");
  EXPECT_EQ(timeout.text(), "Operation timeout");
  EXPECT_TRUE(timeout.is_error());
}

TEST(CppStatus, IsSuccessByDefault) {
  const status none;
  EXPECT_EQ(none, ZOT_OK);
  EXPECT_EQ(none.text(), "Success");
  EXPECT_FALSE(none.is_error());
}

TEST(CppStatus, TakesItsNameForTheTextThatItHasNot) {
  EXPECT_EQ(status(ZOT_ERR_NO_CACHE).text(), "ZOT_ERR_NO_CACHE");
}

TEST(CppStatus, CallsANumberWithoutMeaningUnknown) {
  EXPECT_EQ(status(-99).name(), "unknown");
  EXPECT_EQ(status(-99).text(), "unknown");
}

TEST(CppStatus, LeavesOutNewlinesAtTheEnd) {
  EXPECT_EQ(status(ZOT_ERR_GENERIC, "first\nsecond\n\n").text(), "first\nsecond");
}

TEST(CppStatus, ComparesCodesNotTexts) {
  EXPECT_EQ(status(ZOT_ERR_GENERIC, "one"), status(ZOT_ERR_GENERIC, "other"));
  EXPECT_NE(status(ZOT_ERR_GENERIC), status(ZOT_ERR_NOMEM));
  EXPECT_NE(status(ZOT_ERR_GENERIC), ZOT_OK);
}

TEST(CppCategory, FindsEachByItsName) {
  for (int number = 0; number < ZOT_CAT_COUNT; ++number) {
    const auto category = static_cast<zot_category>(number);
    EXPECT_EQ(zotconf::category_named(zotconf::name_of(category)), category);
  }
}

TEST(CppCategory, RefusesWhatIsNone) {
  EXPECT_EQ(zotconf::category_named("wlan"), std::nullopt);
  EXPECT_EQ(zotconf::category_named(""), std::nullopt);
  EXPECT_EQ(zotconf::name_of(ZOT_CAT_COUNT), "");
}

TEST(CppCategory, ComesInSets) {
  category_set some{ZOT_CAT_WLAN, ZOT_CAT_COUNT};
  EXPECT_TRUE(some.has(ZOT_CAT_WLAN));
  EXPECT_FALSE(some.has(ZOT_CAT_VPN));
  EXPECT_FALSE(some.add(ZOT_CAT_COUNT));
  EXPECT_TRUE(some.add(ZOT_CAT_VPN));
  EXPECT_TRUE(category_set(some.c_set()).has(ZOT_CAT_VPN));
  EXPECT_TRUE(category_set::all().has(ZOT_CAT_ACCESS_LIST));
}

TEST(CppChange, HasNames) {
  EXPECT_EQ(zotconf::name_of(change::added), "added");
  EXPECT_EQ(zotconf::name_of(change::modified), "modified");
  EXPECT_EQ(zotconf::name_of(change::deleted), "deleted");
  EXPECT_EQ(zotconf::name_of(change::unchanged), "unchanged");
  EXPECT_EQ(zotconf::name_of(change::full), "full");
  EXPECT_EQ(zotconf::name_of(change::cached), "cached");
  EXPECT_EQ(zotconf::name_of(change::differences), "unknown");
}

}  // namespace
