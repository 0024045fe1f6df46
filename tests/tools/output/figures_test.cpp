// SPDX-License-Identifier: Apache-2.0
#include "tools/output/figures.hpp"

#include <gtest/gtest.h>

namespace zotconf {
namespace {

TEST(IsoTime, IsInUtcToTheSecond) {
  EXPECT_EQ(iso_time(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(iso_time(1795245273), "2026-11-21T07:14:33Z");
}

TEST(Counted, TakesTheWordForOneOnlyForOne) {
  EXPECT_EQ(counted(0, "entry", "entries"), "0 entries");
  EXPECT_EQ(counted(1, "entry", "entries"), "1 entry");
  EXPECT_EQ(counted(2, "entry", "entries"), "2 entries");
}

}  // namespace
}  // namespace zotconf
