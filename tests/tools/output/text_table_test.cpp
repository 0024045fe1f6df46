// SPDX-License-Identifier: Apache-2.0
#include "tools/output/text_table.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace zotconf {
namespace {

TEST(TextTable, IsAsWideAsItsLongestCells) {
  std::ostringstream out;
  std::ostringstream err;
  text_table table({{"KEY"}, {"SIZE", align::right}, {"NOTE"}});
  table.add_row({"a", "5", "x"});
  table.add_row({"caf\xc3\xa9-long", "12345", ""});
  table.print(console(out, err));
  EXPECT_EQ(out.str(),
            "KEY         SIZE  NOTE\n"
            "a              5  x\n"
            "caf\xc3\xa9-long  12345  \n");
}

TEST(TextTable, WithoutRowsPrintsNothing) {
  std::ostringstream out;
  std::ostringstream err;
  text_table({{"KEY"}}).print(console(out, err));
  EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace zotconf
