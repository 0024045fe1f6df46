// SPDX-License-Identifier: Apache-2.0
#include "tools/service/page_html.hpp"

#include <gtest/gtest.h>

namespace zotconf {
namespace {

TEST(Escaped, LeavesNoMarkupAndNoControlCharacter) {
  EXPECT_EQ(escaped("<a href=\"x\">&</a>\n\x1b\x7f"),
            "&lt;a href=&quot;x&quot;&gt;&amp;&lt;/a&gt;???");
  EXPECT_EQ(escaped("plain \xe2\x82\xac"), "plain \xe2\x82\xac");
  EXPECT_EQ(escaped("\xff"), "?");
}

}  // namespace
}  // namespace zotconf
