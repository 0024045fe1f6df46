// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_loop.hpp"

#include <ctime>
#include <regex>
#include <sstream>

#include "tests/tools/relay/relaying.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;
using zotconf::relay_state;

// Time passes only while the loop waits for it.
class scripted_clock : public zotconf::relay_clock {
 public:
  // Stops at the end of so many pauses.
  explicit scripted_clock(size_t pauses) : left_(pauses) {}

  [[nodiscard]] clock::time_point now() const override { return now_; }
  void wait_until(clock::time_point when) override {
    if (wakes_early_) {
      wakes_early_ = false;
      now_ += (when - now_) / 2;
      return;
    }
    pauses_.push_back(std::chrono::round<milliseconds>(when - ended_));
    now_ = when;
    ended_ = when;
    --left_;
    is_stopped_ = is_stopped_ || left_ == 0;
  }
  [[nodiscard]] bool is_stopped() const override { return is_stopped_; }

  void stop() { is_stopped_ = true; }
  void wake_early() { wakes_early_ = true; }
  [[nodiscard]] const std::vector<milliseconds> &pauses() const { return pauses_; }

 private:
  size_t left_;
  clock::time_point now_;
  clock::time_point ended_;  // the last pause
  std::vector<milliseconds> pauses_;
  std::atomic<bool> is_stopped_ = false;
  bool wakes_early_ = false;
};

class RelayLoop : public Relaying {
 protected:
  RelayLoop() { start_loop(); }

  void start_loop() {
    start();
    loop_.emplace(zotconf::relay_parts{.syncing = *syncing_,
                                       .store = *store_,
                                       .server = *server_,
                                       .board = board_,
                                       .reporter = reporter_});
  }
  [[nodiscard]] relay_state state() const { return board_.read(); }
  // What was printed since the last call, without the times and the port.
  [[nodiscard]] std::string printed() {
    std::string text = out_.str();
    out_.str("");
    text = std::regex_replace(text, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ )"), "");
    text = std::regex_replace(text, std::regex(site_.url()), "URL");
    return std::regex_replace(text, std::regex(R"(retry in [^)]*)"), "retry");
  }
  [[nodiscard]] std::string sequence() const { return std::to_string(k().sequence); }
  // Does so many rounds.
  void run(size_t rounds, unsigned seed = 1) {
    scripted_clock time(rounds + 1);
    run(time, seed);
  }
  void run(scripted_clock &time, unsigned seed = 1) {
    zotconf::schedule when(30s, seed);
    loop_->run(when, time);
  }

  std::ostringstream out_;
  std::ostringstream err_;
  zotconf::notifier manager_;
  zotconf::console where_{out_, err_};
  zotconf::relay_reporter reporter_{where_, manager_};
  zotconf::relay_board board_{relay_state{}};
  std::optional<zotconf::relay_loop> loop_;
};

TEST_F(RelayLoop, TellsANewPublication) {
  EXPECT_EQ(loop_->once().result, round_result::updated);
  EXPECT_EQ(printed(),
            "new publication in service: sequence " + sequence() + ", 2 files, 2 fetched (16 B)\n");
  EXPECT_EQ(loop_->once().result, round_result::unchanged);
  EXPECT_EQ(printed(), "");
}

TEST_F(RelayLoop, TellsOnceThatNothingIsNew) {
  static_cast<void>(loop_->once());
  start_loop();
  static_cast<void>(printed());
  run(3);
  EXPECT_EQ(printed(), "no update\n");
}

TEST_F(RelayLoop, DescribesThePublicationInService) {
  EXPECT_FALSE(state().has_publication);
  const std::time_t begin = std::time(nullptr);
  static_cast<void>(loop_->once());
  const relay_state found = state();
  EXPECT_TRUE(found.has_publication);
  EXPECT_EQ(found.k_digest, sha256_hex(published(k_name)));
  EXPECT_EQ(found.sequence, k().sequence);
  EXPECT_EQ(found.config_id, k().config_id);
  EXPECT_EQ(found.signer, "");
  EXPECT_EQ(found.files, 2U);
  EXPECT_EQ(found.bytes, 16U);
  EXPECT_GE(found.last_news, begin);
  EXPECT_GE(found.last_contact, begin);
  EXPECT_EQ(found.problem, "");
}

TEST_F(RelayLoop, DescribesThePublicationAfterARestartBeforeTheFirstRound) {
  static_cast<void>(loop_->once());
  const relay_state before = state();
  board_.change([](relay_state &all) { all = {}; });
  start_loop();
  const relay_state found = state();
  EXPECT_TRUE(found.has_publication);
  EXPECT_EQ(found.k_digest, before.k_digest);
  EXPECT_EQ(found.files, 2U);
  EXPECT_EQ(found.last_news, before.last_news);
  EXPECT_EQ(found.last_contact, 0);
  EXPECT_EQ(found.rounds, 0U);
}

TEST_F(RelayLoop, CountsRoundsAndBytes) {
  static_cast<void>(loop_->once());
  const relay_state first = state();
  EXPECT_EQ(first.rounds, 1U);
  EXPECT_EQ(first.updates, 1U);
  EXPECT_EQ(first.failures, 0U);
  EXPECT_EQ(first.bytes_saved, 0U);
  EXPECT_EQ(first.bytes_received, 16 + published(k_name).size() + published(checksum_name).size());
  put("Wlan/a", "ssid=another");
  publish_source();
  static_cast<void>(loop_->once());
  static_cast<void>(loop_->once());
  const relay_state found = state();
  EXPECT_EQ(found.rounds, 3U);
  EXPECT_EQ(found.updates, 2U);
  EXPECT_EQ(found.bytes_saved, 10U);
  EXPECT_EQ(found.bytes_received, first.bytes_received + 12 + published(k_name).size() +
                                      2 * published(checksum_name).size());
}

TEST_F(RelayLoop, FilesOfAnEarlierRoundOfTheSameUpdateAreNotSaved) {
  break_after("ssid=a", "Zone", "z");
  EXPECT_EQ(loop_->once().result, round_result::failed);
  site_.deviate({});
  EXPECT_EQ(loop_->once().result, round_result::updated);
  EXPECT_EQ(state().updates, 1U);
  EXPECT_EQ(state().bytes_saved, 0U);
}

TEST_F(RelayLoop, TellsAProblemOnceAndItsEnd) {
  site_.answer(".checksum", 503);
  run(3);
  EXPECT_EQ(printed(), "update failing: " + checksum_name + ": status 503 (retry)\n");
  const relay_state failing = state();
  EXPECT_EQ(failing.failures, 3U);
  EXPECT_EQ(failing.problem, checksum_name + ": status 503");
  EXPECT_FALSE(failing.is_refused);
  EXPECT_GT(failing.problem_since, 0);
  EXPECT_GT(failing.last_attempt, 0);
  EXPECT_EQ(failing.last_contact, 0);
  site_.deviate({});
  run(1);
  EXPECT_EQ(printed(), "recovered\nnew publication in service: sequence " + sequence() +
                           ", 2 files, 2 fetched (16 B)\n");
  EXPECT_EQ(state().problem, "");
  EXPECT_EQ(state().problem_since, 0);
}

TEST_F(RelayLoop, TellsAProblemThatComesBackAfterAnUpdate) {
  site_.answer(".checksum", 503);
  run(1);
  site_.deviate({});
  run(1);
  static_cast<void>(printed());
  site_.answer(".checksum", 503);
  run(2);
  EXPECT_EQ(printed(), "update failing: " + checksum_name + ": status 503 (retry)\n");
}

TEST_F(RelayLoop, ARefusalIsNoFailureOfTheServer) {
  zotconf::manifest content = k();
  content.who.index = "AABBCCDDEEFF";
  const std::string text = zotconf::render_manifest(content);
  write_bytes(publication_ + "/" + k_name, text);
  write_bytes(publication_ + "/" + checksum_name, sha256_hex(text) + "\n");
  run(3);
  EXPECT_EQ(printed(), "publication refused: K is that of AP AABBCCDDEEFF (retry)\n");
  EXPECT_TRUE(state().is_refused);
  EXPECT_EQ(state().refused_digest, sha256_hex(text));
  EXPECT_EQ(state().problem, "K is that of AP AABBCCDDEEFF");
  EXPECT_FALSE(state().has_publication);
  site_.answer(".checksum", 503);
  run(1);
  EXPECT_FALSE(state().is_refused);
  EXPECT_EQ(state().refused_digest, "");
}

TEST_F(RelayLoop, TellsARepair) {
  static_cast<void>(loop_->once());
  static_cast<void>(printed());
  const relay_state before = state();
  flip_bit(object("ssid=a"));
  EXPECT_THROW(static_cast<void>(served("Wlan", "a")), std::runtime_error);
  run(2);
  EXPECT_EQ(printed(), "damage repaired: 1 fetched (6 B)\n");
  const relay_state found = state();
  EXPECT_EQ(found.updates, before.updates);
  EXPECT_EQ(found.bytes_saved, before.bytes_saved);
  EXPECT_EQ(found.last_news, before.last_news);
}

TEST_F(RelayLoop, AFailureOfTheStorageIsThatOfTheRound) {
  std::filesystem::remove_all(store_path_ + "/partial");
  write_bytes(store_path_ + "/partial", "no folder");
  EXPECT_EQ(loop_->once().result, round_result::failed);
  EXPECT_NE(state().problem.find("partial"), std::string::npos) << state().problem;
  std::filesystem::remove(store_path_ + "/partial");
  EXPECT_EQ(loop_->once().result, round_result::updated);
}

TEST_F(RelayLoop, StartsAtARandomTimeAndWaitsAboutThePeriod) {
  scripted_clock time(4);
  run(time);
  ASSERT_EQ(time.pauses().size(), 4U);
  EXPECT_LE(time.pauses()[0], 30s);
  for (size_t at = 1; at < 4; ++at) {
    EXPECT_GE(time.pauses()[at], 27s);
    EXPECT_LE(time.pauses()[at], 33s);
  }
  EXPECT_EQ(state().rounds, 3U);
}

TEST_F(RelayLoop, WaitsLongerAfterEachFailure) {
  site_.answer(".checksum", 500);
  scripted_clock time(5);
  run(time);
  const std::vector<milliseconds> low = {0s, 1s, 2s, 4s, 8s};
  for (size_t at = 1; at < 5; ++at) {
    EXPECT_GE(time.pauses()[at], low[at]);
    EXPECT_LE(time.pauses()[at], 2 * low[at]);
  }
}

TEST_F(RelayLoop, WaitsAsLongAsTheServerAsks) {
  site_.answer(".checksum", 503, "", "600");
  scripted_clock time(2);
  const std::time_t begin = std::time(nullptr);
  run(time);
  EXPECT_GE(time.pauses()[1], 600s);
  EXPECT_LE(time.pauses()[1], 630s);
  EXPECT_GE(state().next_attempt, begin + 600);
}

TEST_F(RelayLoop, AnEarlyEndOfThePauseIsNoRound) {
  scripted_clock time(1);
  time.wake_early();
  run(time);
  EXPECT_EQ(time.pauses().size(), 1U);
  EXPECT_EQ(state().rounds, 0U);
}

TEST_F(RelayLoop, ARoundThatAStopEndsIsNoFailure) {
  site_.hang("/config/");
  scripted_clock time(100);
  std::thread stopper([&] {
    wait_until([&] { return site_.is_hanging(); }, "a request");
    time.stop();
    is_stopped_ = true;
  });
  run(time);
  stopper.join();
  EXPECT_EQ(time.pauses().size(), 1U);
  EXPECT_EQ(state().rounds, 0U);
  EXPECT_EQ(state().failures, 0U);
  EXPECT_EQ(state().problem, "");
  EXPECT_EQ(printed(), "");
}

}  // namespace
}  // namespace zot::test
