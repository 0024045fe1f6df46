// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/open_commit.hpp"

#include <csignal>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/interrupted.hpp"
#include "tests/tools/support/json_value.hpp"

namespace zot::test {
namespace {

constexpr const char *first_id = "00000000-0000-0000-0000-000000000001";
constexpr const char *second_id = "00000000-0000-0000-0000-000000000002";
constexpr const char *puts_back =
    "interrupted commit: the next start puts the configuration before it back";

// The first configuration is in force, the second one is published, and no service runs.
class OpenCommit : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    commit_source({"--config-id", first_id});
    service_->stop(SIGTERM);
    service_.reset();
    put("Wlan/a", "ssid=other");
    publish_source({"--config-id", second_id});
  }
  [[nodiscard]] std::string second_k() const { return read_bytes(published(".k")); }
  // Interrupted while it copies the new files.
  [[nodiscard]] interrupted_commit interrupt() const {
    interrupted_commit commit(conf_root_);
    commit.rotate_k(second_k());
    commit.keep_files();
    commit.write_file("Wlan/a/2", "ssid=other");
    return commit;
  }
  [[nodiscard]] json_value status() const {
    const finished done = run({"status", "--json"});
    EXPECT_EQ(done.status, 0) << done.err;
    return json_value(done.out);
  }
  [[nodiscard]] std::string sentences(const char *member) const {
    std::string text;
    const json_value list = status()[member]["sentences"];
    for (int i = 0; i < list.size(); ++i) {
      text += list[i].text() + "\n";
    }
    return text;
  }
  [[nodiscard]] std::string shown_id() const {
    return json_value(run({"show", "current", "--json"}).out)["config_id"].text();
  }
};

TEST_F(OpenCommit, IsNotToldWhereThereIsNone) {
  const json_value commit = status()["commit"];
  EXPECT_EQ(commit["state"].text(), "none");
  EXPECT_TRUE(commit["next_start"].is_null());
  EXPECT_TRUE(commit["config_id"].is_null());
  EXPECT_EQ(commit["sentences"].size() + commit["leftovers"].size(), 0);
  EXPECT_FALSE(has(run({"status"}).out, "commit"));
}

TEST_F(OpenCommit, IsToldWithTheConfigurationThatComesBack) {
  const interrupted_commit commit = interrupt();
  const json_value told = status()["commit"];
  EXPECT_EQ(told["state"].text(), "interrupted");
  EXPECT_EQ(told["next_start"].text(), "previous");
  EXPECT_EQ(told["config_id"].text(), first_id);
  const std::string out = run({"status"}).out;
  EXPECT_TRUE(has(out, std::string("the last commit:\n  - ") + puts_back +
                           "\n  - in force then: config ID " + first_id + "\n"))
      << out;
}

TEST_F(OpenCommit, IsLookedAtWithoutWriting) {
  const interrupted_commit commit = interrupt();
  const auto before = snapshot(dir_ / "device");
  EXPECT_EQ(run({"status"}).status, 0);
  EXPECT_EQ(run({"show", "current"}).status, 0);
  EXPECT_EQ(run({"verify"}).status, 7);
  EXPECT_EQ(snapshot(dir_ / "device"), before);
}

TEST_F(OpenCommit, LeavesTheSlotsAsTheNextStartFindsThem) {
  const interrupted_commit commit = interrupt();
  const json_value slots = status()["slots"];
  EXPECT_EQ(slots[0]["state"].text(), "good");
  EXPECT_EQ(slots[0]["config_id"].text(), first_id);
  EXPECT_EQ(slots[0]["k"].text(), commit.undo("subsys.k"));
  EXPECT_EQ(slots[1]["state"].text(), "absent");
  EXPECT_EQ(status()["next_get"]["outcome"].text(), "compared");
  EXPECT_TRUE(has(sentences("next_get"), "the interrupted commit is undone first\n"));
}

TEST_F(OpenCommit, IsReadFromBothPlacesWhileItsUndoingIsCutOff) {
  const interrupted_commit commit = interrupt();
  std::filesystem::remove_all(conf("config"));
  std::filesystem::rename(commit.undo("config"), conf("config"));
  std::filesystem::rename(commit.undo("subsys.k"), conf("knowledge/subsys.k"));
  std::filesystem::remove(conf("knowledge/prev_subsys.k"));
  std::filesystem::remove(commit.undo("prev_subsys.k.absent"));
  const json_value told = status();
  EXPECT_EQ(told["commit"]["next_start"].text(), "previous");
  EXPECT_EQ(told["slots"][0]["state"].text(), "good");
  EXPECT_EQ(told["slots"][0]["k"].text(), conf("knowledge/subsys.k"));
  EXPECT_EQ(told["slots"][0]["checksum_file"].text(), commit.undo("subsys.checksum"));
}

TEST_F(OpenCommit, BringsNothingInForceOnAnElementThatHadNothing) {
  std::filesystem::remove_all(conf(""));
  std::filesystem::create_directories(conf("knowledge"));
  const interrupted_commit commit = interrupt();
  const json_value told = status();
  EXPECT_EQ(told["commit"]["next_start"].text(), "nothing");
  EXPECT_TRUE(told["commit"]["config_id"].is_null());
  EXPECT_TRUE(
      has(sentences("commit"), "nothing is in force then: there was no configuration before\n"));
  EXPECT_EQ(told["next_get"]["outcome"].text(), "all_new");
}

TEST_F(OpenCommit, TellsThatFilesWereNotKept) {
  const interrupted_commit commit(conf_root_);
  commit.rotate_k(second_k());
  std::filesystem::remove_all(conf("config"));
  commit.write_file("Wlan/a/2", "ssid=other");
  EXPECT_EQ(status()["commit"]["next_start"].text(), "nothing");
  EXPECT_TRUE(status()["commit"]["config_id"].is_null());
  const std::string told = sentences("commit");
  EXPECT_TRUE(has(told,
                  "nothing is in force then, until the next get: the files of the "
                  "configuration before it were not kept, and " +
                      conf("config/Wlan/a/1") + " is damaged\n"))
      << told;
}

TEST_F(OpenCommit, BringsUntouchedFilesBackInForceThatWereNotKept) {
  const interrupted_commit commit(conf_root_);
  commit.rotate_k(second_k());
  EXPECT_EQ(status()["commit"]["next_start"].text(), "previous");
}

TEST_F(OpenCommit, TellsThatTheKeptKIsDamaged) {
  const interrupted_commit commit = interrupt();
  write_bytes(commit.undo("subsys.k"), "{");
  EXPECT_EQ(status()["commit"]["next_start"].text(), "nothing");
  EXPECT_TRUE(has(sentences("commit"), "nothing is in force then, until the next get: " +
                                           commit.undo("subsys.k") + " is damaged\n"))
      << sentences("commit");
}

TEST_F(OpenCommit, IsInProgressWhileTheCacheIsLocked) {
  const interrupted_commit commit = interrupt();
  const held_lock running(conf_root_);
  const json_value told = status()["commit"];
  EXPECT_EQ(told["state"].text(), "in_progress");
  EXPECT_TRUE(told["next_start"].is_null());
  EXPECT_EQ(sentences("commit"),
            "a commit is in progress: until it ends, the configuration before it is in force\n");
}

TEST_F(OpenCommit, IsInProgressBeforeItKeepsAnything) {
  std::filesystem::create_directories(conf("undo.new"));
  const held_lock running(conf_root_);
  EXPECT_EQ(status()["commit"]["leftovers"].size(), 0);
  EXPECT_EQ(sentences("commit"), "a commit is in progress\n");
}

TEST_F(OpenCommit, LeavesFoldersThatMeanNothing) {
  std::filesystem::create_directories(conf("undo.new"));
  std::filesystem::create_directories(conf("undo.old"));
  const json_value told = status();
  EXPECT_EQ(told["commit"]["state"].text(), "none");
  ASSERT_EQ(told["commit"]["leftovers"].size(), 2);
  EXPECT_EQ(told["commit"]["leftovers"][0].text(), conf("undo.new"));
  EXPECT_EQ(told["slots"][0]["k"].text(), conf("knowledge/subsys.k"));
  EXPECT_TRUE(has(run({"status"}).out,
                  "  - " + conf("undo.old") + " is left of a commit: the next start removes it\n"));
}

TEST_F(OpenCommit, IsNothingToAFolderOfADeveloper) {
  const interrupted_commit commit(conf_root_);
  environment dev = variables();
  dev["ZOT_DEV_PATH"] = conf_root_;
  const json_value told(run_zotconf({"status", "--json"}, dev).out);
  EXPECT_EQ(told["commit"]["state"].text(), "none");
  EXPECT_EQ(told["slots"][0]["k"].text(), conf("knowledge/subsys.k"));
}

TEST_F(OpenCommit, IsWarnedOfByShowWhichShowsWhatComesBack) {
  const interrupted_commit commit = interrupt();
  const finished done = run({"show", "current"});
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.err,
            "zotconf: warning: interrupted commit in " + conf("undo") +
                ": showing the cache as it was before this commit\ntry: zotconf status\n");
  EXPECT_EQ(shown_id(), first_id);
}

TEST_F(OpenCommit, IsWarnedOfByDiffForASlotOfTheCacheOnly) {
  const interrupted_commit commit = interrupt();
  const finished done = run({"diff", "current", dir_ / "pub"});
  EXPECT_TRUE(has(done.err, "interrupted commit in ")) << done.err;
  EXPECT_TRUE(has(done.out, "0 added, 1 modified, 0 deleted, 1 unchanged")) << done.out;
  EXPECT_EQ(run({"diff", dir_ / "pub", dir_ / "pub"}).err, "");
}

TEST_F(OpenCommit, IsWarnedOfWhileItGoesOn) {
  const interrupted_commit commit = interrupt();
  const held_lock running(conf_root_);
  EXPECT_TRUE(has(run({"show", "current"}).err, "warning: commit in progress in "));
}

}  // namespace
}  // namespace zot::test
