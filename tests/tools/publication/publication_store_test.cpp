// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publication_store.hpp"

#include <gtest/gtest.h>

namespace zotconf {
namespace {

TEST(SplitMemberName, TakesConfigCategoryKeyAndVersion) {
  const std::vector<std::string> parts = {"config", "Wlan", "a", "1"};
  for (const std::string name :
       {"config/Wlan/a/1", "/config/Wlan/a/1", "/config//Wlan/a/1", "//config///Wlan//a//1"}) {
    EXPECT_EQ(split_member_name(name), parts) << name;
  }
}

TEST(SplitMemberName, RefusesEveryOtherForm) {
  for (const std::string name : {"", "/", "config", "/config/Wlan/a", "/config/Wlan/a/1/2",
                                 "/config/Wlan/a/1/", "/file/knowledge/AP/x", "/Config/Wlan/a/1",
                                 "/config/./a/1", "/config/Wlan/../1", "../config/Wlan/a"}) {
    EXPECT_FALSE(split_member_name(name)) << name;
  }
}

}  // namespace
}  // namespace zotconf
