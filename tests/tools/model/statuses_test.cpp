// SPDX-License-Identifier: Apache-2.0
#include "tools/model/statuses.hpp"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "zot_conf.h"

namespace zotconf {
namespace {

struct known {
  const char *name;
  int number;
  const char *text;
};

constexpr known interface[] = {
#define ZOT_TEST_ROW(name, number, text) {#name, number, text},
    ZOT_STATUS_MAP(ZOT_TEST_ROW)
#undef ZOT_TEST_ROW
};

TEST(Statuses, AreThoseOfTheInterfaceByNumberAndName) {
  for (const known &status : interface) {
    const auto *const found = find_status(std::to_string(status.number));
    ASSERT_NE(found, nullptr) << status.name;
    EXPECT_EQ(found, find_status(status.name));
    EXPECT_EQ(found->name, status.name);
    EXPECT_EQ(found->advice->code, status.number);
    EXPECT_EQ(found->text.has_value(), status.text != nullptr) << status.name;
    EXPECT_EQ(found->text.value_or(""), status.text != nullptr ? status.text : "");
  }
  EXPECT_EQ(all_statuses().size(), std::size(interface));
}

TEST(Statuses, SaySomethingOfEachAspect) {
  for (const status_entry &entry : all_statuses()) {
    const status_advice &advice = *entry.advice;
    for (const std::string_view text :
         {advice.meaning, advice.retry, advice.fault, advice.cache, advice.action}) {
      EXPECT_FALSE(text.empty()) << entry.name;
    }
    for (const status_cause &cause : entry.causes()) {
      EXPECT_FALSE(cause.when.empty()) << entry.name << ' ' << cause.call;
    }
  }
}

}  // namespace
}  // namespace zotconf
