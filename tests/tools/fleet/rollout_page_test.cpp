// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout_page.hpp"

#include <gtest/gtest.h>

#include "tests/tools/support/cached_element.hpp"
#include "tools/service/page_answer.hpp"

namespace zot::test {
namespace {

using zotconf::rollout;
using zotconf::rollout_page;
using zotconf::standing;

class RolloutPage : public testing::Test {
 protected:
  void add(const std::string &index, standing state, const std::string &reason = "",
           const std::string &config_id = "id") {
    found_.add({.subsys = "AP", .index = index},
               {.digest = "", .config_id = config_id, .sequence = 7},
               {.state = state, .reason = reason}, {});
  }

  rollout found_{1700000000};
};

TEST_F(RolloutPage, IsOnePageThatRunsNoScript) {
  add("0A", standing::in_force);
  const std::string html = rollout_page(found_, {});
  EXPECT_TRUE(html.starts_with("<!doctype html>"));
  EXPECT_TRUE(html.ends_with("</html>\n"));
  EXPECT_FALSE(has(html, "<script"));
  EXPECT_FALSE(has(html, " style="));
  EXPECT_FALSE(has(html, "href=\"http"));
  EXPECT_TRUE(has(html, "default-src 'none'"));
  EXPECT_TRUE(has(html, "style-src " + zotconf::source_hash(html, "style")));
  EXPECT_TRUE(has(html, "at 2023-11-14T22:13:20Z"));
}

TEST_F(RolloutPage, SaysTheSameAsItsBars) {
  for (int i = 0; i < 3; ++i) {
    add("a" + std::to_string(i), standing::in_force);
  }
  add("b", standing::silent, "no report");
  const std::string html = rollout_page(found_, {});
  EXPECT_TRUE(has(html,
                  "<rect class=\"in_force\" x=\"0\" width=\"750\" height=\"10\"/>"
                  "<rect class=\"silent\" x=\"750\" width=\"250\" height=\"10\"/></svg>"))
      << html;
  EXPECT_TRUE(has(html, "in force 3 (75.0%)"));
  EXPECT_TRUE(has(html, "silent 1 (25.0%)"));
  EXPECT_TRUE(has(html, "refused 0 (0.0%)"));
}

TEST_F(RolloutPage, ShowsTheVerdict) {
  add("0A", standing::in_force);
  EXPECT_TRUE(has(rollout_page(found_, {}), "<title>no limit exceeded - zotconf fleet</title>"));
  EXPECT_FALSE(has(rollout_page(found_, {}), "class=\"note\""));
  const std::string html =
      rollout_page(found_, {.status = zotconf::exit_fleet_refused, .reason = "too many"});
  EXPECT_TRUE(has(html, "<title>refused by too many - zotconf fleet</title>"));
  EXPECT_TRUE(has(html, "<p class=\"reason\">too many</p>"));
}

TEST_F(RolloutPage, LeavesOutEmptySections) {
  add("0A", standing::in_force);
  const std::string html = rollout_page(found_, {});
  for (const std::string title : {"Reasons", "Refused", "Failing", "Silent", "Notes"}) {
    EXPECT_FALSE(has(html, "<h2>" + title)) << title;
  }
}

TEST_F(RolloutPage, EscapesWhatComesFromOutside) {
  const std::string hostile = "<img src=x onerror=\"alert(1)\">&\x1b[31m";
  for (const standing state : {standing::refused, standing::failing, standing::silent}) {
    add(hostile, state, hostile, hostile);
  }
  found_.add_note(zotconf::note_kind::damaged_k, {.subsys = "AP", .index = hostile}, hostile);
  const std::string html =
      rollout_page(found_, {.status = zotconf::exit_fleet_refused, .reason = hostile});
  EXPECT_FALSE(has(html, "<img"));
  EXPECT_FALSE(has(html, "\"alert"));
  EXPECT_FALSE(has(html, "\x1b"));
  // The config ID, the verdict, two reasons, three elements and their reasons, the note's two.
  EXPECT_EQ(count_of("&lt;img src=x onerror=&quot;alert(1)&quot;&gt;&amp;?[31m", html), 12U);
}

TEST_F(RolloutPage, ListsAThousandElementsOfEachState) {
  for (int i = 0; i < 1007; ++i) {
    add("x" + std::to_string(i), standing::refused, "why");
  }
  const std::string html = rollout_page(found_, {});
  EXPECT_EQ(count_of("<td class=\"fixed\">AP x", html), 1000U);
  EXPECT_TRUE(has(html, "and 7 more"));
}

}  // namespace
}  // namespace zot::test
