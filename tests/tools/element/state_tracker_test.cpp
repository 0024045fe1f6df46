// SPDX-License-Identifier: Apache-2.0
#include "tools/element/state_tracker.hpp"

#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "tests/tools/element/watching.hpp"
#include "tests/tools/support/interrupted.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tools/output/exit_status.hpp"

namespace zot::test {
namespace {

constexpr const char *first_id = "00000000-0000-0000-0000-000000000001";
constexpr const char *second_id = "00000000-0000-0000-0000-000000000002";
const std::string accepted = "applied and committed";
const std::string refuse_x = "! test -e \"$ZOTCONF_DIR/Ap/x\"";

// The state that a real watch writes.
class StateTracker : public Watch {
 protected:
  void SetUp() override {
    Watch::SetUp();
    publish_source({"--config-id", first_id});
  }

  [[nodiscard]] std::unique_ptr<background> track(const std::string &command,
                                                  std::vector<std::string> more = {}) const {
    more.insert(more.end(), {"--state", file_});
    return watch(command, more);
  }
  [[nodiscard]] json_value state() const { return json_value(read_bytes(file_)); }
  // Waits until a member, given with its parents, is not null.
  void wait_for_member(const char *name) const {
    wait_until([&] { return exists(file_) && !state()[name].is_null(); }, name);
  }
  void wait_for_no_problem() const {
    wait_until([&] { return exists(file_) && state()["problem"].is_null(); }, "no problem");
  }
  [[nodiscard]] std::string published_digest() const {
    return sha256_hex(
        read_bytes(dir_ / "pub/file/knowledge/AP/001122334455/latest/001122334455.k"));
  }
  [[nodiscard]] std::string conf_root() const { return dir_ / "device/writable/zot/"; }
  static void stop(background &running) {
    running.send(SIGTERM);
    ASSERT_EQ(running.wait(), ok);
  }
  // Commits the first configuration and refuses the second one.
  void roll_back() const {
    const auto running = track(refuse_x);
    running->wait_for(accepted);
    put("Ap/x", "model=x");
    publish_source({"--config-id", second_id});
    running->wait_for("rolled back");
    wait_for_member("refused");
    stop(*running);
  }

  std::string file_ = dir_ / "element.json";
};

TEST_F(StateTracker, BeforeTheFirstCommitNothingIsInForce) {
  hide_publication();
  const auto running = track("true");
  wait_for_member("problem");
  EXPECT_TRUE(state()["in_force"].is_null());
  EXPECT_TRUE(state()["refused"].is_null());
  EXPECT_TRUE(state()["undo"].is_null());
  EXPECT_TRUE(state()["problem"]["text"].text().starts_with("get: unable to get K.checksum"))
      << read_bytes(file_);
  EXPECT_EQ(state()["subsys"].text(), "AP");
  EXPECT_EQ(state()["index"].text(), "001122334455");
}

TEST_F(StateTracker, NamesWhatIsInForce) {
  const auto running = track("true");
  wait_for_member("in_force");
  EXPECT_EQ(state()["in_force"]["digest"].text(), published_digest());
  EXPECT_EQ(state()["in_force"]["config_id"].text(), first_id);
  EXPECT_TRUE(state()["problem"].is_null());
}

TEST_F(StateTracker, NamesWhatWasRolledBackAndWhy) {
  roll_back();
  const json_value refused = state()["refused"];
  EXPECT_EQ(refused["digest"].text(), published_digest());
  EXPECT_EQ(refused["config_id"].text(), second_id);
  EXPECT_EQ(refused["reason"].text(), "apply: exit status 1");
  EXPECT_EQ(refused["time"].text().size(), 20U);
  EXPECT_EQ(state()["in_force"]["config_id"].text(), first_id);
  EXPECT_TRUE(state()["problem"].is_null());
}

TEST_F(StateTracker, KeepsTheReasonAcrossRestarts) {
  roll_back();
  const std::string before = state()["refused"]["time"].text();
  const auto again = track("true");
  again->wait_for("same as rolled back");
  stop(*again);
  EXPECT_EQ(state()["refused"]["reason"].text(), "apply: exit status 1");
  EXPECT_EQ(state()["refused"]["time"].text(), before);
}

TEST_F(StateTracker, DoesNotKeepTheReasonOfAnotherConfiguration) {
  roll_back();
  put("Ap/x", "model=y");
  publish_source();
  ASSERT_EQ(run_zotconf({"cycle", "--index", "001122334455", "--roll-back"}, variables_).status,
            zotconf::exit_rolled_back);
  const auto again = track("true");
  again->wait_for("same as rolled back");
  EXPECT_EQ(state()["refused"]["digest"].text(), published_digest());
  EXPECT_TRUE(state()["refused"]["reason"].is_null());
  EXPECT_TRUE(state()["refused"]["time"].is_null());
}

TEST_F(StateTracker, TheStateOfAnotherElementIsNotContinued) {
  roll_back();
  std::string text = read_bytes(file_);
  text.replace(text.find("001122334455"), 12, "AABBCCDDEEFF");
  write_bytes(file_, text);
  const auto again = track("true");
  again->wait_for("same as rolled back");
  EXPECT_EQ(state()["index"].text(), "001122334455");
  EXPECT_TRUE(state()["refused"]["reason"].is_null());
}

TEST_F(StateTracker, ADamagedFileIsReplaced) {
  write_bytes(file_, std::string(100'000, '{'));
  const auto running = track("true");
  running->wait_for(accepted);
  wait_until([&] { return read_bytes(file_).size() < 10'000; }, "the state");
  wait_for_member("in_force");
  EXPECT_TRUE(running->err().empty()) << running->err();
}

TEST_F(StateTracker, WhatIsForgottenIsNoLongerRefused) {
  roll_back();
  const auto again = track(refuse_x);
  again->wait_for("same as rolled back");
  fs::remove(dir_ / "source/Ap/x");
  publish_source();
  again->wait_for(accepted);
  // The watch may just have the lock of the cache.
  wait_until([&] { return run_zotconf({"forget"}, variables_).status == ok; }, "forget");
  wait_until([&] { return state()["refused"].is_null(); }, "the state");
}

TEST_F(StateTracker, TellsAnInterruptedCommitThatAStartHasUndone) {
  const auto first = track("true");
  first->wait_for(accepted);
  stop(*first);
  const std::string before = published_digest();
  put("Wlan/a", "ssid=other");
  publish_source({"--config-id", second_id});
  const interrupted_commit commit(conf_root());
  commit.rotate_k(read_bytes(dir_ / "pub/file/knowledge/AP/001122334455/latest/001122334455.k"));
  hide_publication();
  const auto again = track("true");
  wait_for_member("undo");
  EXPECT_EQ(state()["undo"]["digest"].text(), before);
  EXPECT_EQ(state()["undo"]["time"].text().size(), 20U);
  EXPECT_EQ(state()["in_force"]["digest"].text(), before);
  stop(*again);
  const std::string undone = state()["undo"]["time"].text();
  show_publication();
  const auto last = track("true");
  last->wait_for(accepted);
  wait_until([&] { return state()["in_force"]["digest"].text() == published_digest(); },
             "the commit");
  EXPECT_EQ(state()["undo"]["digest"].text(), before);
  EXPECT_EQ(state()["undo"]["time"].text(), undone);
}

TEST_F(StateTracker, AnUndoneFirstCommitLeavesNothingInForce) {
  fs::create_directories(conf_root() + "knowledge");
  const interrupted_commit commit(conf_root());
  commit.rotate_k(read_bytes(dir_ / "pub/file/knowledge/AP/001122334455/latest/001122334455.k"));
  hide_publication();
  const auto running = track("true");
  wait_for_member("undo");
  EXPECT_TRUE(state()["undo"]["digest"].is_null());
  EXPECT_TRUE(state()["in_force"].is_null());
}

TEST_F(StateTracker, TellsSinceWhenTheElementFailsAndThatItNoLongerDoes) {
  const auto running = track("exit 126");
  wait_for_member("problem");
  const std::string text = state()["problem"]["text"].text();
  EXPECT_TRUE(text.starts_with("apply: ")) << text;
  EXPECT_TRUE(has(text, "126")) << text;
  const std::string since = state()["problem"]["since"].text();
  wait_for_gets(3);
  EXPECT_EQ(state()["problem"]["since"].text(), since);
  stop(*running);
  const auto again = track("true");
  again->wait_for(accepted);
  wait_for_no_problem();
}

TEST_F(StateTracker, WritesOnlyWhatHasChanged) {
  const auto running = track("true");
  running->wait_for("no update");
  wait_for_gets(2);
  const auto before = fs::last_write_time(file_);
  wait_for_gets(5);
  EXPECT_EQ(fs::last_write_time(file_), before);
}

TEST_F(StateTracker, WritesAFileThatWasRemovedAgain) {
  const auto running = track("true");
  running->wait_for("no update");
  fs::remove(file_);
  wait_for_member("in_force");
}

TEST_F(StateTracker, GoesOnWithoutAPlaceToWriteAndWarnsOnce) {
  file_ = dir_ / "absent/element.json";
  const auto running = track("true");
  running->wait_for(accepted);
  wait_for_gets(5);
  EXPECT_EQ(count_of("the state of this element is not written: cannot create " + dir_.path(),
                     running->err()),
            1U)
      << running->err();
  fs::create_directory(dir_ / "absent");
  wait_for_member("in_force");
  fs::remove_all(dir_ / "absent");
  wait_until([&] { return count_of("is not written", running->err()) == 2; }, "a second warning");
}

TEST_F(StateTracker, TellsWhyTheElementCannotStart) {
  variables_["ZOT_PREFIX_CONF_ROOT"] = dir_ / "a;b";
  const auto running = track("true");
  EXPECT_EQ(running->wait(), failed);
  const std::string text = state()["problem"]["text"].text();
  EXPECT_TRUE(text.starts_with("start: ")) << text;
  EXPECT_TRUE(state()["in_force"].is_null());
}

TEST_F(StateTracker, TellsThatItCannotStartBecauseItCannotReadTheCache) {
  const auto committing = track("true");
  wait_for_member("in_force");
  stop(*committing);
  fs::permissions(dir_.path(), fs::perms::all);
  const auto before = fs::status(conf_root()).permissions();
  fs::permissions(conf_root(), fs::perms::none);
  const finished done = run_zotconf_as_user(
      {"watch", "--index", "001122334455", "--apply", "true", "--state", file_}, variables_);
  fs::permissions(conf_root(), before);
  EXPECT_EQ(done.status, failed) << done.err;
  const std::string text = state()["problem"]["text"].text();
  EXPECT_TRUE(text.starts_with("start: ")) << text;
  EXPECT_TRUE(state()["in_force"].is_null());
  EXPECT_FALSE(has(done.err, "is not written")) << done.err;
}

TEST_F(StateTracker, EverybodyMayReadTheFile) {
  const mode_t before = ::umask(077);
  const auto running = track("true");
  wait_for_member("in_force");
  ::umask(before);
  EXPECT_EQ(fs::status(file_).permissions(), fs::perms(0644));
}

TEST_F(StateTracker, NeedsAName) {
  EXPECT_EQ(run_zotconf({"watch", "--index", "001122334455", "--apply", "true", "--state", ""},
                        variables_)
                .status,
            usage);
}

}  // namespace
}  // namespace zot::test
