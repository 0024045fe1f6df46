// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <sstream>

#include "tests/tools/element/datagrams.hpp"
#include "tests/tools/relay/static_site.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/publishing.hpp"
#include "tests/tools/support/signing.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using words = std::vector<std::string>;

const std::string in_service = "new publication in service: ";

bool has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

class Relay : public Publishing {
 protected:
  Relay() {
    ::chmod(dir_.path().c_str(), 0755);  // the relay may run as another user
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    publish_source();
  }

  void publish_source(const words &more = {}) const {
    const finished done = run(more);
    ASSERT_EQ(done.status, 0) << done.err;
  }
  // These options, and others where they say nothing.
  [[nodiscard]] words command_with(const words &rules, const words &more) const {
    words args = {"relay", "--index", "001122334455"};
    args.insert(args.end(), rules.begin(), rules.end());
    args.insert(args.end(), more.begin(), more.end());
    for (const auto &[option, value] :
         {std::pair("--upstream", site_.url()), std::pair("--store", store_),
          std::pair("--every", std::string("100ms")), std::pair("--port", std::string("0"))}) {
      if (std::ranges::find(more, option) == more.end()) {
        args.insert(args.end(), {option, value});
      }
    }
    if (::geteuid() == 0) {
      args.insert(args.end(), {"--user", "nobody"});
    }
    return args;
  }
  [[nodiscard]] words command(const words &more = {}) const {
    return command_with({"--unsigned"}, more);
  }
  void start(const words &args, const environment &variables = {}) {
    relay_.reset();
    relay_ = std::make_unique<background>(args, variables);
    relay_->wait_for("\n");
  }
  [[nodiscard]] std::uint16_t port() const {
    const std::string out = relay_->out();
    return static_cast<std::uint16_t>(std::stoul(out.substr(out.find(":") + 1)));
  }
  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port()); }
  [[nodiscard]] finished once(const words &more = {}) const {
    words args = command(more);
    args.emplace_back("--once");
    return run_zotconf(args);
  }
  // The element of this publication fetches it from the relay and puts it into force.
  [[nodiscard]] finished cycle() const {
    return run_zotconf({"cycle", "--index", "001122334455", "--commit"},
                       {{"ZOT_DEV_PATH", ""},
                        {"ZOT_PREFIX_CONF_ROOT", dir_ / "device"},
                        {"ZOT_PREFIX_TMP_ROOT", dir_ / "device"},
                        {"ZOT_REMOTE_PORT", std::to_string(port())}});
  }
  [[nodiscard]] std::string in_force(const std::string &category, const std::string &key) const {
    return read_bytes(dir_ / ("device/writable/zot/config/" + category + "/" + key + "/" +
                              std::to_string(version(category, key))));
  }

  std::string store_ = dir_ / "store";
  static_site site_{publication_};
  std::unique_ptr<background> relay_;
};

TEST_F(Relay, PrintsWhereItListensAndWhatItFollows) {
  start(command());
  relay_->wait_for(in_service);
  std::istringstream lines(relay_->out());
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "listening on 127.0.0.1:" + std::to_string(port()));
  std::getline(lines, line);
  EXPECT_TRUE(
      line.ends_with("Z starting: AP 001122334455 from " + site_.url() + ", every 100ms, unsigned"))
      << line;
  std::getline(lines, line);
  EXPECT_TRUE(has(line, in_service + "sequence ")) << line;
  EXPECT_TRUE(line.ends_with(", 2 files, 2 fetched (16 B)")) << line;
}

TEST_F(Relay, ServesWholeCyclesOfTheLibrary) {
  start(command());
  relay_->wait_for(in_service);
  const finished first = cycle();
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(in_force("Wlan", "a"), "ssid=a");
  put("Wlan/a", "ssid=another");
  publish_source();
  relay_->wait_for(in_service, 2);
  const finished second = cycle();
  EXPECT_EQ(second.status, 0) << second.err;
  EXPECT_EQ(in_force("Wlan", "a"), "ssid=another");
  EXPECT_EQ(in_force("Zone", "z"), "country=DE");
}

TEST_F(Relay, ServesTheLastPublicationWithoutUpstreamFromItsStart) {
  ASSERT_EQ(once().status, 0);
  site_.stop();
  start(command({"--every", "1h"}));
  const finished done = cycle();
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_EQ(in_force("Wlan", "a"), "ssid=a");
}

TEST_F(Relay, TellsOnceThatUpstreamFailsAndServesOn) {
  start(command());
  relay_->wait_for(in_service);
  site_.stop();
  relay_->wait_for("update failing: ");
  EXPECT_TRUE(has(relay_->out(), "cannot connect to 127.0.0.1:")) << relay_->out();
  EXPECT_EQ(cycle().status, 0);
  EXPECT_EQ(count_of("update failing: ", relay_->out()), 1U) << relay_->out();
}

TEST_F(Relay, TellsOnceWhatAClientRequestsAgainAndAgainInVain) {
  ASSERT_EQ(once().status, 0);
  start(command({"--every", "1h"}));
  std::filesystem::remove_all(store_ + "/objects");
  const std::string wanted = R"({"files": ["/config/Wlan/a/1"]})";
  for (int i = 0; i < 20; ++i) {
    const auto answer = httplib::Client(url()).Post("/tgz", wanted, "application/json");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 500);
  }
  EXPECT_EQ(count_of(": missing or damaged in ", relay_->err()), 1U) << relay_->err();
}

TEST_F(Relay, ProbeFindsNoDeviation) {
  start(command());
  relay_->wait_for(in_service);
  const finished done = run_zotconf({"probe", url(), "--index", "001122334455"});
  EXPECT_EQ(done.status, 0) << done.out;
  EXPECT_TRUE(has(done.out, "\nprobe: 18 of 18 checks passed, 0 failed, 0 not run\n")) << done.out;
}

TEST_F(Relay, AnswersWithItsStatus) {
  start(command());
  relay_->wait_for(in_service);
  httplib::Client client("127.0.0.1", port());
  client.set_read_timeout(60s);
  const auto page = client.Get("/");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  const auto status = client.Get("/status.json");
  ASSERT_TRUE(status);
  EXPECT_EQ(status->status, 200);
  EXPECT_TRUE(has(status->body, sha256_hex(published(k_name)))) << status->body;
  const auto other = client.Get("/other");
  ASSERT_TRUE(other);
  EXPECT_EQ(other->status, 404);
}

TEST_F(Relay, OnceBringsThePublicationInAndExits) {
  const finished first = once();
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_TRUE(has(first.out, in_service)) << first.out;
  EXPECT_FALSE(has(first.out, "listening")) << first.out;
  const finished second = once();
  EXPECT_EQ(second.status, 0) << second.err;
  EXPECT_TRUE(second.out.ends_with("Z no update\n")) << second.out;
}

TEST_F(Relay, OnceExitsWithTheFailureOfUpstream) {
  site_.answer(".checksum", 500);
  const finished done = once();
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(done.out.ends_with("Z update failing: " + checksum_name + ": status 500\n"))
      << done.out;
}

TEST_F(Relay, OnceExitsWithARefusal) {
  zotconf::manifest content = k();
  content.who.index = "AABBCCDDEEFF";
  const std::string text = zotconf::render_manifest(content);
  write_bytes(publication_ + "/" + k_name, text);
  write_bytes(publication_ + "/" + checksum_name, sha256_hex(text) + "\n");
  const finished done = once();
  EXPECT_EQ(done.status, 6);
  EXPECT_TRUE(done.out.ends_with("Z publication refused: K is that of AP AABBCCDDEEFF\n"))
      << done.out;
}

TEST_F(Relay, AcceptsOnlyWhatAKeyringTrusts) {
  const authority publisher;
  publisher.issue("publisher");
  write_bytes(dir_ / "publisher.crt", read_bytes(publisher.certificate()));
  const words rules = {"--keyring", dir_ / "publisher.crt"};
  const finished refused = run_zotconf(command_with(rules, {"--once"}));
  EXPECT_EQ(refused.status, 6) << refused.out << refused.err;
  EXPECT_TRUE(refused.out.ends_with("Z publication refused: K is not signed\n")) << refused.out;
  EXPECT_EQ(refused.err, "");
  publish_source(publisher.signs_as("publisher"));
  const finished accepted = run_zotconf(command_with(rules, {"--once"}));
  EXPECT_EQ(accepted.status, 0) << accepted.out << accepted.err;
  EXPECT_TRUE(has(accepted.out, ", signed by CN=publisher\n")) << accepted.out;
}

TEST_F(Relay, WarnsThatNothingProtectsAnUnsignedKOnTheWay) {
  EXPECT_TRUE(has(once().err, "without a keyring and TLS, anybody on the way can replace"));
}

TEST_F(Relay, SigtermEndsItDuringATransfer) {
  for (const std::string part : {".checksum", "/config/"}) {
    static_site slow(publication_);
    slow.hang(part);
    start(command({"--upstream", slow.url()}));
    wait_until([&] { return slow.is_hanging(); }, "a request");
    const auto begin = std::chrono::steady_clock::now();
    relay_->send(SIGTERM);
    EXPECT_EQ(relay_->wait(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s) << part;
    EXPECT_TRUE(relay_->out().ends_with("Z stopping: signal 15\n")) << relay_->out();
    EXPECT_FALSE(has(relay_->out(), "failing")) << relay_->out();
  }
}

TEST_F(Relay, SigintEndsItBetweenTwoRounds) {
  start(command({"--every", "1h"}));
  relay_->wait_for("starting: ");
  relay_->send(SIGINT);
  EXPECT_EQ(relay_->wait(), 0);
  EXPECT_TRUE(relay_->out().ends_with("Z stopping: signal 2\n")) << relay_->out();
}

TEST_F(Relay, AStoreHasOneRelay) {
  start(command());
  const finished second = once();
  EXPECT_EQ(second.status, 1);
  EXPECT_TRUE(has(second.err, store_ + ": another relay uses this folder\n")) << second.err;
}

TEST_F(Relay, AKilledRelayLeavesAStoreThatTheNextOneServes) {
  start(command());
  relay_->wait_for(in_service);
  relay_->send(SIGKILL);
  EXPECT_EQ(relay_->wait(), 128 + SIGKILL);
  start(command({"--every", "1h"}));
  EXPECT_EQ(cycle().status, 0);
}

TEST_F(Relay, PrintsJsonLines) {
  start(command({"--json"}));
  relay_->wait_for(R"("event":"updated")");
  relay_->send(SIGTERM);
  EXPECT_EQ(relay_->wait(), 0);
  std::istringstream lines(relay_->out());
  std::string line;
  std::getline(lines, line);
  const json_value address = json_value(line)["listening"];
  EXPECT_EQ(address["host"].text(), "127.0.0.1");
  EXPECT_GT(address["port"].number(), 0);
  EXPECT_GT(address["pid"].number(), 0);
  words events;
  while (std::getline(lines, line)) {
    events.push_back(json_value(line)["event"].text());
    if (events.back() == "updated") {
      EXPECT_EQ(json_value(line)["sequence"].number(), static_cast<double>(k().sequence));
    }
  }
  EXPECT_EQ(events, (words{"starting", "updated", "stopping"}));
}

TEST_F(Relay, TellsTheServiceManagerWhatItDoes) {
  const std::string name = "@zotconf-relay-test-" + std::to_string(::getpid());
  const datagrams manager(name);
  start(command(), {{"NOTIFY_SOCKET", name}, {"WATCHDOG_USEC", "200000"}});
  EXPECT_EQ(manager.next(), "READY=1");
  EXPECT_TRUE(manager.next_with("STATUS=").starts_with("STATUS=starting: AP 001122334455"));
  EXPECT_EQ(manager.next_with("WATCHDOG"), "WATCHDOG=1");
  relay_->send(SIGTERM);
  EXPECT_EQ(manager.next_with("STOPPING"), "STOPPING=1");
  EXPECT_EQ(relay_->wait(), 0);
}

// A server that does not answer is no reason to restart the relay.
TEST_F(Relay, ShowsLifeWhileItWaitsForTheServer) {
  const std::string name = "@zotconf-relay-life-" + std::to_string(::getpid());
  const datagrams manager(name);
  site_.hang(".checksum");
  start(command(), {{"NOTIFY_SOCKET", name}, {"WATCHDOG_USEC", "1000000"}});
  wait_until([&] { return site_.is_hanging(); }, "a request");
  while (!manager.is_empty()) {
    static_cast<void>(manager.next());
  }
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
}

TEST_F(Relay, DoesNotRunAsRoot) {
  const finished done = run_zotconf({"relay", "--upstream", site_.url(), "--index", "001122334455",
                                     "--store", store_, "--unsigned", "--once"});
  if (::geteuid() == 0) {
    EXPECT_EQ(done.status, 1);
    EXPECT_TRUE(has(done.err,
                    "zotconf: does not run as root: give it a user of its own\n"
                    "try: zotconf relay --user NAME\n"))
        << done.err;
    EXPECT_FALSE(exists(store_));
  } else {
    EXPECT_EQ(done.status, 0) << done.err;
  }
}

TEST_F(Relay, ThePortMustBeFree) {
  start(command());
  const finished done = run_zotconf(
      command({"--store", dir_ / "other", "--port", std::to_string(port()), "--every", "1h"}));
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(has(done.err, std::to_string(port()))) << done.err;
}

TEST_F(Relay, RefusesWrongUsage) {
  const std::string file = publication_ + "/" + k_name;
  const std::vector<words> wrong = {{},
                                    {"--unsigned", "--keyring", file},
                                    {"--keyring", "/absent.crt"},
                                    {"--unsigned", "--cert", file},
                                    {"--unsigned", "--key", file},
                                    {"--unsigned", "--cert", "/absent.crt", "--key", file},
                                    {"--unsigned", "--ca", "/absent.crt"},
                                    {"--unsigned", "--upstream", "ftp://127.0.0.1/"},
                                    {"--unsigned", "--upstream", "127.0.0.1:80"},
                                    {"--unsigned", "--upstream", "http://127.0.0.1/?a=b"},
                                    {"--unsigned", "--every", "0s"},
                                    {"--unsigned", "--every", "30"},
                                    {"--unsigned", "--max-age", "-1s"},
                                    {"--unsigned", "--max-age", ""},
                                    {"--unsigned", "--subsys", "XX"},
                                    {"--unsigned", "--keep", "0"},
                                    {"--unsigned", "--port", "65536"},
                                    {"--unsigned", "--limit-rate", "0"},
                                    {"--unsigned", "--compression", "10"},
                                    {"--unsigned", "more"}};
  for (const words &more : wrong) {
    const finished done = run_zotconf(command_with({}, more));
    EXPECT_EQ(done.status, 2) << ::testing::PrintToString(more) << done.err;
    EXPECT_NE(done.err, "") << ::testing::PrintToString(more);
  }
  EXPECT_FALSE(exists(store_));
}

TEST_F(Relay, NeedsItsUpstreamItsElementAndItsStore) {
  EXPECT_EQ(run_zotconf({"relay", "--index", "0A", "--store", store_, "--unsigned"}).status, 2);
  EXPECT_EQ(
      run_zotconf({"relay", "--upstream", site_.url(), "--store", store_, "--unsigned"}).status, 2);
  EXPECT_EQ(run_zotconf({"relay", "--upstream", site_.url(), "--index", "0A", "--unsigned"}).status,
            2);
  EXPECT_EQ(run_zotconf({"relay", "--upstream", site_.url(), "--index", "a/b", "--store", store_,
                         "--unsigned"})
                .status,
            2);
}

TEST_F(Relay, AKeyringWithoutACertificateIsAnError) {
  write_bytes(dir_ / "empty.crt", "no certificate\n");
  const finished done = run_zotconf(command_with({"--keyring", dir_ / "empty.crt"}, {"--once"}));
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(has(done.err, dir_ / "empty.crt")) << done.err;
}

TEST_F(Relay, PrintsNoPasswordOfTheUrl) {
  site_.stop();
  const std::string secret = "http://user:secret@" + site_.url().substr(7);
  const finished done = run_zotconf(command({"--upstream", secret, "--once", "--json"}));
  EXPECT_EQ(done.status, 1);
  EXPECT_FALSE(has(done.out + done.err, "secret")) << done.out << done.err;
}

}  // namespace
}  // namespace zot::test
