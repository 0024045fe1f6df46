// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_report.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <sstream>

#include "tests/support/files.hpp"
#include "tests/tools/element/datagrams.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::notifier;
using zotconf::relay_event;
using zotconf::relay_reporter;

class RelayReport : public testing::Test {
 protected:
  // Returns what was printed, with the time as "TIME".
  [[nodiscard]] std::string printed() const {
    return std::regex_replace(out_.str(), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)"), "TIME");
  }
  [[nodiscard]] json_value told_as_json(const zotconf::relay_report &news) {
    const zotconf::console where(out_, err_, {.json = true});
    relay_reporter(where, manager_).tell(news);
    EXPECT_EQ(count_of("\n", out_.str()), 1U) << out_.str();
    return json_value(out_.str());
  }

  std::ostringstream out_;
  std::ostringstream err_;
  notifier manager_;
  zotconf::console where_{out_, err_};
  relay_reporter reporter_{where_, manager_};
};

// What is told of reports does not repeat what was told of the rounds.
TEST_F(RelayReport, AnEventAsideIsNotTheLastOneOfTheRounds) {
  const zotconf::relay_report failing = {.what = relay_event::failing, .text = "no answer"};
  reporter_.tell_change(failing);
  reporter_.tell_aside({.what = relay_event::reports_failing, .text = "status 403"});
  reporter_.tell_change(failing);
  reporter_.tell_aside({.what = relay_event::reports_recovered});
  EXPECT_EQ(printed(),
            "TIME update failing: no answer\n"
            "TIME reports failing: status 403\n"
            "TIME reports recovered\n");
}

TEST_F(RelayReport, PrintsALineForEachEvent) {
  reporter_.tell({.what = relay_event::starting, .text = "AP 0A"});
  reporter_.tell({.what = relay_event::unchanged});
  reporter_.tell({.what = relay_event::updated, .text = "2 files", .sequence = 7});
  reporter_.tell({.what = relay_event::refused, .text = "K is not signed", .retry = 1500ms});
  reporter_.tell({.what = relay_event::failing, .text = "no answer", .retry = 90s});
  reporter_.tell({.what = relay_event::recovered});
  reporter_.tell({.what = relay_event::stopping, .text = "signal 15"});
  EXPECT_EQ(printed(),
            "TIME starting: AP 0A\n"
            "TIME no update\n"
            "TIME new publication in service: 2 files\n"
            "TIME publication refused: K is not signed (retry in 1.5s)\n"
            "TIME update failing: no answer (retry in 1m30s)\n"
            "TIME recovered\n"
            "TIME stopping: signal 15\n");
  EXPECT_EQ(err_.str(), "");
}

TEST_F(RelayReport, PrintsAnEventAsOneJsonObjectInOneLine) {
  const json_value told = told_as_json(
      {.what = relay_event::updated, .text = "2 files", .sequence = 7, .retry = 1500ms});
  EXPECT_EQ(told["time"].text().size(), std::string("2026-11-21T07:14:33Z").size());
  EXPECT_EQ(told["event"].text(), "updated");
  EXPECT_EQ(told["text"].text(), "2 files");
  EXPECT_EQ(told["sequence"].number(), 7);
  EXPECT_EQ(told["retry_ms"].number(), 1500);
}

TEST_F(RelayReport, PrintsNullInJsonForWhatDoesNotApply) {
  const json_value told = told_as_json({.what = relay_event::unchanged});
  EXPECT_EQ(told["event"].text(), "unchanged");
  EXPECT_EQ(told["text"].text(), "");
  EXPECT_TRUE(told["sequence"].is_null());
  EXPECT_TRUE(told["retry_ms"].is_null());
}

TEST_F(RelayReport, PrintsNoControlCharactersOfAServer) {
  reporter_.tell({.what = relay_event::failing, .text = "a\x1b[31m\nb"});
  EXPECT_EQ(printed(), "TIME update failing: a?[31m?b\n");
}

TEST_F(RelayReport, PrintsNoControlCharactersOfAServerInJson) {
  EXPECT_EQ(told_as_json({.what = relay_event::failing, .text = "a\x1b[31m\xff"})["text"].text(),
            "a?[31m?");
}

TEST_F(RelayReport, PaintsOnlyOnATerminalWithColours) {
  const zotconf::console coloured(out_, err_, {.colours = true});
  relay_reporter(coloured, manager_).tell({.what = relay_event::recovered});
  EXPECT_NE(out_.str().find("\x1b["), std::string::npos);
}

TEST_F(RelayReport, TellsAProblemOnceAlsoIfThePauseGrows) {
  reporter_.tell_change({.what = relay_event::failing, .text = "no answer", .retry = 1s});
  reporter_.tell_change({.what = relay_event::failing, .text = "no answer", .retry = 2s});
  EXPECT_EQ(printed(), "TIME update failing: no answer (retry in 1s)\n");
}

TEST_F(RelayReport, TellsAnotherProblemAndAnotherKindOfIt) {
  reporter_.tell_change({.what = relay_event::failing, .text = "no answer"});
  reporter_.tell_change({.what = relay_event::failing, .text = "HTTP status 500"});
  reporter_.tell_change({.what = relay_event::refused, .text = "HTTP status 500"});
  reporter_.tell_change({.what = relay_event::failing, .text = "no answer"});
  EXPECT_EQ(count_of("\n", printed()), 4U) << printed();
}

TEST_F(RelayReport, TellsTheServiceManagerTheSameText) {
  const temp_dir dir;
  const datagrams listening(dir / "notify");
  ::setenv("NOTIFY_SOCKET", (dir / "notify").c_str(), 1);
  const notifier manager;
  relay_reporter reporter(where_, manager);
  reporter.tell_change({.what = relay_event::failing, .text = "no answer", .retry = 1s});
  reporter.tell_change({.what = relay_event::failing, .text = "no answer", .retry = 2s});
  EXPECT_EQ(listening.next(), "STATUS=update failing: no answer (retry in 1s)");
  EXPECT_TRUE(listening.is_empty());
}

}  // namespace
}  // namespace zot::test
