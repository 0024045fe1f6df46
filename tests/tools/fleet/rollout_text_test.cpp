// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout_text.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/support/process.hpp"

namespace zotconf {
namespace {

class RolloutText : public testing::Test {
 protected:
  void add(const std::string &index, standing state, const std::string &reason = "",
           const std::string &config_id = "id") {
    report_reading reading;
    reading.report.emplace().received = 1700000000;
    found_.add({.subsys = "AP", .index = index},
               {.digest = "", .config_id = config_id, .sequence = 7},
               {.state = state, .reason = reason}, reading);
  }
  [[nodiscard]] std::string printed(const rollout_verdict &verdict = {}) {
    print_rollout(console(out_, err_), found_, verdict);
    return out_.str();
  }

  rollout found_{1700000000};
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(RolloutText, PrintsOnlyTheCountsOfAFinishedRollout) {
  add("0A", standing::in_force);
  EXPECT_EQ(printed(),
            "CONFIG ID  SEQUENCE  ELEMENTS  IN FORCE  REFUSED  FAILING  WAITING  SILENT  UNDONE\n"
            "id                7         1  1 100.0%   0 0.0%   0 0.0%   0 0.0%  0 0.0%  0 0.0%\n");
}

TEST_F(RolloutText, PrintsReasonsElementsNotesAndTheVerdict) {
  add("0A", standing::failing, "get: timeout");
  add("0B", standing::refused, "apply: exit status 1");
  add("0C", standing::silent, "no report");
  found_.add_note(note_kind::damaged_k, {.subsys = "AP", .index = "0D"}, "K is bad");
  const std::string text = printed({.status = exit_fleet_pending, .reason = "too few"});
  EXPECT_TRUE(
      text.ends_with("\nELEMENTS  STATE    REASON\n"
                     "       1  refused  apply: exit status 1\n"
                     "       1  failing  get: timeout\n"
                     "\nELEMENT  STATE    REPORTED              REASON\n"
                     "AP 0B    refused  2023-11-14T22:13:20Z  apply: exit status 1\n"
                     "AP 0A    failing  2023-11-14T22:13:20Z  get: timeout\n"
                     "\nnote: AP 0D: K is bad\n"
                     "\npending: too few\n"))
      << text;
}

TEST_F(RolloutText, PrintsTwentyLinesOfEachList) {
  for (int i = 0; i < 15; ++i) {
    add("r" + std::to_string(i), standing::refused, "refused " + std::to_string(i),
        "id" + std::to_string(i));
    add("f" + std::to_string(i), standing::failing, "failing " + std::to_string(i),
        "other" + std::to_string(i));
    found_.add_note(note_kind::damaged_report, {.subsys = "AP", .index = "x"}, "one");
    found_.add_note(note_kind::damaged_report, {.subsys = "AP", .index = "x"}, "one");
  }
  const std::string text = printed();
  EXPECT_EQ(zot::test::count_of("\nAP r", text), 15U) << text;
  EXPECT_EQ(zot::test::count_of("\nAP f", text), 5U) << text;
  EXPECT_EQ(zot::test::count_of("\n       1  ", text), 20U) << text;
  EXPECT_EQ(zot::test::count_of("\nnote: AP x: one", text), 20U) << text;
  EXPECT_EQ(zot::test::count_of("\nid", text) + zot::test::count_of("\nother", text), 20U) << text;
  EXPECT_EQ(zot::test::count_of("\nand 10 more\n", text), 4U) << text;
}

TEST_F(RolloutText, NamesASubSystemWithoutAnElement) {
  add("0A", standing::in_force);
  found_.add_note(note_kind::damaged_report, {.subsys = "AP", .index = ""}, "no folder");
  EXPECT_TRUE(printed().ends_with("\nnote: AP: no folder\n"));
}

}  // namespace
}  // namespace zotconf
