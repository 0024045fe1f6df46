// SPDX-License-Identifier: Apache-2.0
// The reports of a relay that runs.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "tests/tools/relay/report_receiver.hpp"
#include "tests/tools/relay/scripted_server.hpp"
#include "tests/tools/relay/static_site.hpp"
#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/publishing.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using connection = scripted_server::connection;
using words = std::vector<std::string>;

class RelayReports : public Publishing {
 protected:
  RelayReports() {
    ::chmod(dir_.path().c_str(), 0755);  // the relay may run as another user
    put("Wlan/a", "ssid=a");
    EXPECT_EQ(run({}).status, 0);
  }

  [[nodiscard]] words command(const words &more) const {
    words args = {"relay",      "--index",   "001122334455", "--unsigned",
                  "--upstream", site_.url(), "--store",      dir_ / "store",
                  "--every",    "50ms",      "--port",       "0"};
    args.insert(args.end(), more.begin(), more.end());
    if (::geteuid() == 0) {
      args.insert(args.end(), {"--user", "nobody"});
    }
    return args;
  }
  [[nodiscard]] std::unique_ptr<background> start(const words &more) const {
    auto running = std::make_unique<background>(command(more), variables_);
    running->wait_for("new publication in service");
    return running;
  }
  [[nodiscard]] static json_value status(const background &relay) {
    const std::string out = relay.out();
    const auto port = std::stoi(out.substr(out.find(':') + 1));
    const auto answer = httplib::Client("127.0.0.1", port).Get("/status.json");
    EXPECT_TRUE(answer);
    return json_value(answer->body);
  }
  [[nodiscard]] words reporting_to(const std::string &url) const {
    return {"--report", url, "--element", dir_ / "element.json"};
  }

  const environment variables_ = {{"ZOT_DEV_PATH", ""}, {"ZOT_PREFIX_CONF_ROOT", dir_ / "device"}};
  static_site site_{publication_};
  report_receiver receiver_;
};

TEST_F(RelayReports, TheFirstOneFollowsTheFirstRound) {
  const auto relay = start(reporting_to(receiver_.url()));
  receiver_.wait_for(1);
  const auto report = receiver_.all().front();
  EXPECT_EQ(report.path, "/reports/AP/001122334455.json");
  const json_value text(report.body);
  EXPECT_EQ(text["relay"]["state"].text(), "good");
  EXPECT_EQ(text["offered"]["digest"].text(), sha256_hex(published(k_name)));
  EXPECT_FALSE(text["element_known"].flag());
  EXPECT_TRUE(has(relay->out(), ", reports to " + receiver_.url() + "\n")) << relay->out();
  wait_until([&] { return !status(*relay)["report"]["pending"].flag(); }, "the status");
  EXPECT_EQ(status(*relay)["report"]["url"].text(), receiver_.url());
  EXPECT_TRUE(status(*relay)["report"]["problem"].is_null());
  EXPECT_EQ(status(*relay)["report"]["last_sent"].text().size(), 20U);
}

TEST_F(RelayReports, ANewPublicationIsReported) {
  const auto relay = start(reporting_to(receiver_.url()));
  receiver_.wait_for(1);
  put("Wlan/a", "ssid=b");
  ASSERT_EQ(run({}).status, 0);
  relay->wait_for("new publication in service", 2);
  wait_until(
      [&] {
        return json_value(receiver_.all().back().body)["offered"]["digest"].text() ==
               sha256_hex(published(k_name));
      },
      "the report");
}

TEST_F(RelayReports, ARefusedPublicationIsReportedWithItsDigest) {
  const auto relay = start(reporting_to(receiver_.url()));
  receiver_.wait_for(1);
  zotconf::manifest content = zotconf::parse_manifest(published(k_name)).value();
  content.who.index = "AABBCCDDEEFF";
  const std::string k = zotconf::render_manifest(content);
  write_bytes(publication_ + "/" + k_name, k);
  write_bytes(publication_ + "/" + checksum_name, sha256_hex(k) + "\n");
  relay->wait_for("publication refused: K is that of AP AABBCCDDEEFF");
  wait_until(
      [&] {
        const json_value report(receiver_.all().back().body);
        const json_value digest = report["relay"]["refused_digest"];
        return !digest.is_null() && digest.text() == sha256_hex(k);
      },
      "the report");
}

// The cache is not that of the relay's user.
TEST_F(RelayReports, WithoutAFileTheCacheIsRead) {
  const auto relay = start({"--report", receiver_.url()});
  receiver_.wait_for(1);
  EXPECT_FALSE(json_value(receiver_.all().back().body)["element_known"].flag());
  EXPECT_TRUE(has(relay->err(), "reports do not tell what the element has in force: cannot read " +
                                    (dir_ / "device/writable/zot")))
      << relay->err();
}

TEST_F(RelayReports, AReceiverThatStallsDelaysNeitherRoundsNorClientsNorTheEnd) {
  const scripted_server receiver([](connection &with, const std::string &, unsigned) {
    with.stay_silent();
    return false;
  });
  const auto relay = start(reporting_to(receiver.url()));
  wait_until([&] { return receiver.connections() > 0; }, "a report");
  site_.forget_requests();
  wait_until([&] { return site_.count(".checksum") >= 5; }, "rounds");
  EXPECT_TRUE(status(*relay)["report"]["pending"].flag());
  const auto begin = std::chrono::steady_clock::now();
  relay->send(SIGTERM);
  EXPECT_EQ(relay->wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
  EXPECT_TRUE(relay->out().ends_with("Z stopping: signal 15\n")) << relay->out();
}

TEST_F(RelayReports, AReceiverThatRefusesIsToldOnce) {
  receiver_.answer(403);
  const auto relay = start(reporting_to(receiver_.url()));
  relay->wait_for("reports failing: AP/001122334455.json: status 403\n");
  site_.forget_requests();
  wait_until([&] { return site_.count(".checksum") >= 5; }, "rounds");
  EXPECT_EQ(count_of("reports failing", relay->out()), 1U) << relay->out();
  EXPECT_EQ(status(*relay)["report"]["problem"].text(), "AP/001122334455.json: status 403");
  EXPECT_EQ(status(*relay)["state"].text(), "good");
}

TEST_F(RelayReports, OnceSendsOneReport) {
  words more = reporting_to(receiver_.url());
  more.emplace_back("--once");
  const finished done = run_zotconf(command(more), variables_);
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_EQ(receiver_.count(), 1U);
}

TEST_F(RelayReports, OnceExitsWithItsRoundEvenIfTheReportFails) {
  receiver_.answer(507);
  words more = reporting_to(receiver_.url());
  more.emplace_back("--once");
  const finished done = run_zotconf(command(more), variables_);
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_TRUE(has(done.err, "the report was not sent: AP/001122334455.json: status 507"))
      << done.err;
}

TEST_F(RelayReports, RefusesWrongUsage) {
  for (const words &wrong :
       {words{"--report", "ftp://127.0.0.1"}, words{"--report", "http://127.0.0.1/?a=b"},
        words{"--element", "/tmp/element.json"}}) {
    EXPECT_EQ(run_zotconf(command(wrong), variables_).status, 2) << wrong.front();
  }
}

}  // namespace
}  // namespace zot::test
