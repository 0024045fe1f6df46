// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/reporting.hpp"

#include <sstream>

#include "tests/tools/relay/report_receiver.hpp"
#include "tests/tools/relay/served_relay.hpp"
#include "tests/tools/support/cached_element.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::relay_state;

class Reporting : public testing::Test {
 protected:
  Reporting() { start(receiver_.url()); }

  void start(const std::string &url) {
    reports_.reset();
    reports_ = std::make_unique<zotconf::reporting>(
        zotconf::report_options{.url = url, .element = file_}, zotconf::upstream_options{}, board_,
        reporter_, where_,
        zotconf::report_times{.regular = 1h, .shortest_pause = 20ms, .longest_pause = 50ms});
  }
  void write_state(char digit) const {
    zotconf::element_state state;
    state.version = "1.0.0";
    state.who = board_.read().who;
    state.in_force = {.digest = std::string(64, digit), .config_id = ""};
    zotconf::write_element_state(file_, zotconf::element_state_text(state, "2026-11-23T11:00:00Z"));
  }
  [[nodiscard]] zotconf::report_status status() const { return board_.read().report.value(); }
  void wait_for_sent() const {
    wait_until([this] { return status().last_sent != 0 && !status().is_pending; }, "a report");
  }
  [[nodiscard]] json_value last() const { return json_value(receiver_.all().back().body); }
  // Waits until an attempt has failed.
  void fail_once() {
    receiver_.answer(507);
    board_.change([](relay_state &state) { ++state.sequence; });
    reports_->collect();
    wait_until([this] { return !status().problem.empty(); }, "a problem");
  }
  void recover() {
    receiver_.answer(204);
    wait_until([this] { return status().problem.empty(); }, "a success");
  }

  temp_dir dir_;
  const std::string file_ = dir_ / "element.json";
  report_receiver receiver_;
  std::ostringstream out_;
  std::ostringstream err_;
  zotconf::console where_{out_, err_};
  zotconf::notifier manager_;
  zotconf::relay_reporter reporter_{where_, manager_};
  zotconf::relay_board board_{good_relay(std::time(nullptr))};
  std::unique_ptr<zotconf::reporting> reports_;
};

TEST_F(Reporting, ReportsNothingBeforeTheFirstRoundHasEnded) {
  board_.change([](relay_state &state) { state.rounds = 0; });
  reports_->collect();
  EXPECT_FALSE(status().is_pending);
  board_.change([](relay_state &state) { state.rounds = 1; });
  reports_->collect();
  wait_for_sent();
  EXPECT_EQ(receiver_.count(), 1U);
}

TEST_F(Reporting, ReportsWhatTheElementHasDone) {
  write_state('a');
  reports_->collect();
  wait_for_sent();
  EXPECT_EQ(last()["in_force"]["digest"].text(), std::string(64, 'a'));
  write_state('b');
  reports_->collect();
  reports_->collect();
  receiver_.wait_for(2);
  wait_for_sent();
  EXPECT_EQ(last()["in_force"]["digest"].text(), std::string(64, 'b'));
  EXPECT_EQ(receiver_.count(), 2U);
  EXPECT_EQ(err_.str(), "");
}

TEST_F(Reporting, WarnsOnceThatTheElementIsNotKnown) {
  for (int i = 0; i < 3; ++i) {
    reports_->collect();
  }
  wait_for_sent();
  EXPECT_FALSE(last()["element_known"].flag());
  const std::string warning = "reports do not tell what the element has in force: cannot open ";
  EXPECT_EQ(count_of(warning + file_, err_.str()), 1U) << err_.str();
  write_state('a');
  reports_->collect();
  write_bytes(file_, "{");
  reports_->collect();
  EXPECT_EQ(count_of("reports do not tell", err_.str()), 2U) << err_.str();
}

TEST_F(Reporting, TellsOnceThatReportsFailAndOnceThatTheyRecovered) {
  write_state('a');
  fail_once();
  receiver_.wait_for(4);
  recover();
  reports_.reset();
  EXPECT_EQ(count_of("reports failing: AP/001122334455.json: status 507\n", out_.str()), 1U)
      << out_.str();
  EXPECT_EQ(count_of("reports recovered\n", out_.str()), 1U) << out_.str();
  EXPECT_EQ(count_of("\n", out_.str()), 2U) << out_.str();
}

TEST_F(Reporting, TellsEachFailureThatFollowsARecovery) {
  write_state('a');
  fail_once();
  recover();
  fail_once();
  recover();
  reports_.reset();
  EXPECT_EQ(count_of("reports failing: ", out_.str()), 2U) << out_.str();
}

TEST_F(Reporting, PrintsNoCredentials) {
  write_state('a');
  start("http://user:secret@" + receiver_.place());
  fail_once();
  recover();
  reports_.reset();
  EXPECT_EQ(status().url, "http://" + receiver_.place());
  EXPECT_FALSE(has(out_.str() + err_.str(), "secret")) << out_.str() << err_.str();
  EXPECT_EQ(receiver_.all().back().authorization, "Basic dXNlcjpzZWNyZXQ=");
}

TEST_F(Reporting, FinishWarnsOfAReportThatWasNotSent) {
  write_state('a');
  receiver_.answer(403, "3600");
  reports_->collect();
  reports_->finish(10s, [] { return false; });
  EXPECT_TRUE(has(err_.str(), "the report was not sent: AP/001122334455.json: status 403"))
      << err_.str();
}

}  // namespace
}  // namespace zot::test
