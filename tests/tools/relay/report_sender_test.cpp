// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/report_sender.hpp"

#include "tests/tools/relay/report_receiver.hpp"
#include "tests/tools/relay/scripted_server.hpp"
#include "tests/tools/relay/served_relay.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::report_sender;
using zotconf::report_status;
using zotconf::report_times;
using connection = scripted_server::connection;
using steady = std::chrono::steady_clock;

// A report that differs from others by its number.
zotconf::report_facts facts(unsigned number) {
  zotconf::relay_state state = good_relay(relay_start);
  state.sequence = number;
  return {.relay = state, .health = zotconf::relay_health::good};
}

unsigned number_of(const report_receiver::received &report) {
  return static_cast<unsigned>(json_value(report.body)["offered"]["sequence"].number());
}

class ReportSender : public testing::Test {
 protected:
  static report_times quick() {
    return {.regular = 1h,
            .shortest_pause = 20ms,
            .longest_pause = 50ms,
            .connect_timeout = 5s,
            .whole_timeout = 20s};
  }
  [[nodiscard]] std::unique_ptr<report_sender> sender(const std::string &url,
                                                      const report_times &times = quick()) {
    return std::make_unique<report_sender>(
        url,
        zotconf::connection_options{.ca = {},
                                    .certificate = {},
                                    .key = {},
                                    .connect_timeout = times.connect_timeout,
                                    .certificate_time = {}},
        times, [this](const report_status &status) {
          const std::scoped_lock guard(mutex_);
          status_ = status;
        });
  }
  [[nodiscard]] report_status status() const {
    const std::scoped_lock guard(mutex_);
    return status_;
  }
  void wait_for_sent() const {
    wait_until([this] { return status().last_sent != 0 && !status().is_pending; }, "a report");
  }
  void wait_for_problem() const {
    wait_until([this] { return !status().problem.empty(); }, "a problem");
  }

  report_receiver receiver_;

 private:
  mutable std::mutex mutex_;
  report_status status_;
};

TEST_F(ReportSender, SendsNothingBeforeThereIsAReport) {
  const auto to = sender(receiver_.url());
  EXPECT_EQ(status().url, receiver_.url());
  EXPECT_FALSE(status().is_pending);
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(receiver_.count(), 0U);
}

TEST_F(ReportSender, SendsAReportOnceForEachChange) {
  const auto to = sender(receiver_.url());
  for (unsigned number = 1; number <= 3; ++number) {
    to->offer(facts(number));
    to->offer(facts(number));
    receiver_.wait_for(number);
    wait_for_sent();
    to->offer(facts(number));
  }
  std::this_thread::sleep_for(200ms);
  const auto all = receiver_.all();
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(number_of(all.back()), 3U);
  EXPECT_EQ(all.back().path, "/reports/AP/001122334455.json");
  EXPECT_EQ(json_value(all.back().body)["time"].text().size(), 20U);
}

TEST_F(ReportSender, SendsAgainWithoutAChangeWhenTheTimeHasCome) {
  report_times times = quick();
  times.regular = 100ms;
  const auto to = sender(receiver_.url(), times);
  to->offer(facts(1));
  receiver_.wait_for(4);
  EXPECT_EQ(number_of(receiver_.all().back()), 1U);
}

TEST_F(ReportSender, TriesAgainAndSendsTheNewestReportOnly) {
  receiver_.answer(503);
  report_times times = quick();
  times.shortest_pause = 300ms;
  times.longest_pause = 400ms;
  const auto to = sender(receiver_.url(), times);
  to->offer(facts(1));
  wait_for_problem();
  EXPECT_EQ(status().problem, "AP/001122334455.json: status 503");
  EXPECT_TRUE(status().is_pending);
  receiver_.answer(201);
  to->offer(facts(2));
  to->offer(facts(3));
  wait_for_sent();
  EXPECT_EQ(status().problem, "");
  const auto all = receiver_.all();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(number_of(all.back()), 3U);
}

TEST_F(ReportSender, DoesNotTryAgainBeforeTheReceiverWantsIt) {
  receiver_.answer(503, "3600");
  const auto to = sender(receiver_.url());
  to->offer(facts(1));
  wait_for_problem();
  to->offer(facts(2));
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(receiver_.count(), 1U);
}

TEST_F(ReportSender, AChangeDuringATransferIsSentAfterIt) {
  std::atomic<bool> may_answer = false;
  const scripted_server server([&](connection &with, const std::string &, unsigned) {
    while (!may_answer) {
      std::this_thread::sleep_for(5ms);
    }
    with.send(response("204 No Content", "Connection: close\r\n", ""));
    return false;
  });
  const auto to = sender(server.url());
  to->offer(facts(1));
  wait_until([&] { return server.requests().size() == 1; }, "a request");
  to->offer(facts(2));
  EXPECT_TRUE(status().is_pending);
  may_answer = true;
  wait_until([&] { return server.requests().size() == 2; }, "another request");
  wait_for_sent();
}

TEST_F(ReportSender, TheEndDoesNotWaitForAReceiverThatStalls) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    with.stay_silent();
    return false;
  });
  auto to = sender(server.url());
  to->offer(facts(1));
  wait_until([&] { return server.requests().size() == 1; }, "a request");
  const auto begin = steady::now();
  to->offer(facts(2));
  to.reset();
  EXPECT_LT(steady::now() - begin, 900ms);
  EXPECT_EQ(status().problem, "");
}

TEST_F(ReportSender, WaitsForAReport) {
  const auto never = [] { return false; };
  const auto to = sender(receiver_.url());
  EXPECT_EQ(to->wait(5s, never), "");
  to->offer(facts(1));
  EXPECT_EQ(to->wait(5s, never), "");
  EXPECT_EQ(receiver_.count(), 1U);
  receiver_.answer(403, "3600");
  to->offer(facts(2));
  EXPECT_EQ(to->wait(5s, never), "AP/001122334455.json: status 403");
}

TEST_F(ReportSender, DoesNotWaitLongerThanItMay) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    with.stay_silent();
    return false;
  });
  const auto to = sender(server.url());
  to->offer(facts(1));
  EXPECT_EQ(to->wait(200ms, [] { return false; }), "no answer from the receiver yet");
  EXPECT_EQ(to->wait(1h, [] { return true; }), "no answer from the receiver yet");
}

TEST_F(ReportSender, HidesTheCredentials) {
  const auto to = sender("http://user:secret@" + receiver_.place());
  EXPECT_EQ(status().url, "http://" + receiver_.place());
}

}  // namespace
}  // namespace zot::test
