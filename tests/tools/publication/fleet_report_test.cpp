// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/fleet_report.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"

namespace zotconf {
namespace {

class FleetReport : public testing::Test {
 protected:
  [[nodiscard]] std::string printed(const fleet_report &report, bool json) {
    const console where(out_, err_, {.json = json});
    tell_fleet_problems(where, report);
    write_fleet_report(where, report);
    return out_.str();
  }

  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(FleetReport, NamesTheResult) {
  fleet_report report;
  EXPECT_STREQ(report.result(), "unchanged");
  report.published = 1;
  EXPECT_STREQ(report.result(), "published");
  report.dry_run = true;
  EXPECT_STREQ(report.result(), "would publish");
  report.refused.push_back({.index = "0A", .reason = "bad"});
  EXPECT_STREQ(report.result(), "refused");
}

TEST_F(FleetReport, PrintsNoCountsOfARefusedFleet) {
  fleet_report report;
  report.refused.push_back({.index = "", .reason = "folder: bad"});
  EXPECT_EQ(printed(report, false), "");
  EXPECT_EQ(err_.str(), "zotconf: refused: folder: bad\n");
}

TEST_F(FleetReport, SetsNoIndexForAPartOfNoElement) {
  fleet_report report;
  report.refused.push_back({.index = "", .reason = "folder: bad"});
  const zot::test::json_value told(printed(report, true));
  EXPECT_TRUE(told["refused"][0]["index"].is_null());
  EXPECT_EQ(told["refused"][0]["reason"].text(), "folder: bad");
}

TEST_F(FleetReport, ListsTwentySkippedFiles) {
  fleet_report report;
  for (int i = 0; i < 25; ++i) {
    report.left_out.emplace_back("file" + std::to_string(i));
  }
  static_cast<void>(printed(report, false));
  EXPECT_EQ(zot::test::count_of("zotconf: skipped: file", err_.str()), 20U);
  EXPECT_TRUE(err_.str().ends_with("zotconf: skipped: and 5 more\n"));
}

}  // namespace
}  // namespace zotconf
