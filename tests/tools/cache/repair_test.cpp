// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/repair.hpp"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/interrupted.hpp"
#include "tests/tools/support/json_value.hpp"

namespace zot::test {
namespace {

constexpr int clean = 0;
constexpr int failed = 1;
constexpr int usage = 2;
constexpr int damaged = 7;

// Whether zotconf runs as this process and has a directory open.
bool has_open(pid_t process, const std::string &directory) {
  std::error_code gone;
  const std::filesystem::path of_process = "/proc/" + std::to_string(process);
  // Before the exec, the child still has the test's descriptors.
  if (!has(read_bytes(of_process / "cmdline"), "--repair")) {
    return false;
  }
  for (const auto &each : std::filesystem::directory_iterator(of_process / "fd", gone)) {
    if (std::filesystem::read_symlink(each.path(), gone) == directory) {
      return true;
    }
  }
  return false;
}

// Tells whether a process has read a file since the watch began.
class watched_file {
 public:
  explicit watched_file(const std::string &path)
      : events_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (::inotify_add_watch(events_.get(), path.c_str(), IN_CLOSE_NOWRITE) < 0) {
      throw std::runtime_error("cannot watch " + path);
    }
  }
  [[nodiscard]] bool was_read() const {
    std::array<char, 4096> events{};
    return ::read(events_.get(), events.data(), events.size()) > 0;
  }

 private:
  zot::descriptor events_;
};

class Repair : public CachedElement {
 protected:
  void SetUp() override {
    put("Ap/x", "model=x");
    put("Wlan/a", "ssid=a");
    put("Wlan/b", "ssid=b");
    put("Zone/z", "country=DE");
    commit_source();
  }
  [[nodiscard]] finished repair(const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {"verify", "--repair", "--index", index_};
    args.insert(args.end(), more.begin(), more.end());
    return run(args);
  }
  // The examination opens the folder too, but not after it has read the last file.
  void wait_for_the_lock(const background &running, const watched_file &last_of_k) const {
    const std::string root = std::filesystem::canonical(conf_root_);
    wait_until([&] { return last_of_k.was_read(); }, "the examination");
    wait_until([&] { return has_open(running.pid(), root); }, "the repair at the lock");
  }

  const std::string k_ = conf("knowledge/subsys.k");
  const std::string checksum_ = conf("knowledge/subsys.checksum");
};

TEST_F(Repair, DoesNothingToAGoodCache) {
  const auto before = snapshot(dir_ / "device");
  service_->stop(SIGTERM);
  service_.reset();
  EXPECT_EQ(repair().status, clean);
  EXPECT_EQ(snapshot(dir_ / "device"), before);
}

TEST_F(Repair, TouchesNothingThatIsGood) {
  auto before = snapshot(dir_ / "device");
  std::filesystem::remove(conf("config/Wlan/a/1"));
  write_bytes(conf("config/Zone/z/1"), "country=FR");
  ASSERT_EQ(repair().status, clean);
  auto after = snapshot(dir_ / "device");
  // The repair changes the folders in which it creates names, and the root, which held its
  // temporary folder.
  for (const std::string &changed :
       {conf_root_.substr(0, conf_root_.size() - 1), conf("config/Wlan/a"), conf("config/Zone/z"),
        conf("config/Wlan/a/1"), conf("config/Zone/z/1")}) {
    EXPECT_EQ(before.erase(changed), 1U) << changed;
    EXPECT_EQ(after.erase(changed), 1U) << changed;
  }
  EXPECT_EQ(after, before);
  EXPECT_EQ(read_bytes(conf("config/Wlan/a/1")), "ssid=a");
  EXPECT_EQ(read_bytes(conf("config/Zone/z/1")), "country=DE");
}

TEST_F(Repair, AsksForTheBadFilesOnly) {
  std::filesystem::remove(conf("config/Wlan/a/1"));
  std::filesystem::remove(dir_ / "pub/config/Zone/z/1");
  EXPECT_EQ(repair().status, clean);
}

TEST_F(Repair, BringsBackALostFolder) {
  std::filesystem::remove_all(conf("config"));
  EXPECT_EQ(repair().status, clean);
  EXPECT_EQ(tree(conf("config")),
            (std::vector<std::string>{"Ap/x/1", "Wlan/a/1", "Wlan/b/1", "Zone/z/1"}));
}

TEST_F(Repair, ReplacesAFileInThePlaceOfAFolder) {
  std::filesystem::remove_all(conf("config/Wlan"));
  write_bytes(conf("config/Wlan"), "in the way");
  EXPECT_EQ(repair().status, clean);
  EXPECT_EQ(read_bytes(conf("config/Wlan/b/1")), "ssid=b");
}

TEST_F(Repair, WritesNothingBehindASymbolicLink) {
  std::filesystem::rename(conf("config/Wlan"), dir_ / "elsewhere");
  std::filesystem::create_symlink(dir_ / "elsewhere", conf("config/Wlan"));
  std::filesystem::remove(dir_ / "elsewhere/a/1");
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out, "still bad: " + conf("config/Wlan/a/1") + ": a symbolic link stands"))
      << done.out;
  EXPECT_FALSE(exists(dir_ / "elsewhere/a/1"));
}

TEST_F(Repair, RepairsWhatItCanWhenAFileIsNotAvailable) {
  std::filesystem::remove_all(conf("config"));
  std::filesystem::remove(dir_ / "pub/config/Wlan/b/1");
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(
      has(done.out, "not available: " + conf("config/Wlan/b/1") + ": Unable to get remote files\n"))
      << done.out;
  EXPECT_EQ(tree(conf("config")), (std::vector<std::string>{"Ap/x/1", "Wlan/a/1", "Zone/z/1"}));
}

TEST_F(Repair, PutsNothingInPlaceThatKDoesNotAnnounce) {
  write_bytes(conf("config/Zone/z/1"), "country=FR");
  write_bytes(dir_ / "pub/config/Zone/z/1", "country=IT");
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out, "still bad: " + conf("config/Zone/z/1") + ": fetched: ")) << done.out;
  EXPECT_EQ(read_bytes(conf("config/Zone/z/1")), "country=FR");
}

TEST_F(Repair, FailsWithoutAServiceWithTheTextOfTheLibrary) {
  std::filesystem::remove(conf("config/Wlan/a/1"));
  service_->stop(SIGTERM);
  const finished done = repair();
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, "zotconf: repair: curl error get GPB files from")) << done.err;
  EXPECT_TRUE(has(done.err, "(-6)\ntry: zotconf explain -6\n")) << done.err;
  EXPECT_TRUE(has(done.out, "damaged: " + conf("config/Wlan/a/1"))) << done.out;
}

TEST_F(Repair, FailsWhenTheServiceKnowsNoSuchElement) {
  std::filesystem::remove(k_);
  const finished done = run({"verify", "--repair", "--index", "cafe"});
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, "http return code = 404 (-16)")) << done.err;
}

TEST_F(Repair, RestoresKAndThenItsFiles) {
  write_bytes(k_, "{");
  std::filesystem::remove(conf("config/Wlan/a/1"));
  const finished done = repair();
  EXPECT_EQ(done.status, clean) << done.out;
  EXPECT_TRUE(has(done.out, "repaired: " + k_ + "\n")) << done.out;
  EXPECT_TRUE(has(done.out, "repaired: " + conf("config/Wlan/a/1") + "\n")) << done.out;
}

TEST_F(Repair, RestoresAChecksumThatIsWellFormedAndWrong) {
  write_bytes(checksum_, sha256_hex("something else") + "\n");
  const auto k = std::filesystem::last_write_time(k_);
  EXPECT_EQ(repair().status, clean);
  EXPECT_EQ(read_bytes(checksum_), read_bytes(published(".checksum")));
  EXPECT_EQ(std::filesystem::last_write_time(k_), k);
}

TEST_F(Repair, LeavesADamagedKAloneWhenTheServiceOffersAnother) {
  write_bytes(k_, "{");
  put("Wlan/a", "ssid=new");
  publish_source();
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(
      has(done.out, "not restorable: " + k_ + ": the service does not offer the K in force"))
      << done.out;
  EXPECT_EQ(read_bytes(k_), "{");
  EXPECT_EQ(read_bytes(checksum_) != read_bytes(published(".checksum")), true);
}

TEST_F(Repair, RestoresNothingWhenKAndChecksumAreBothDamaged) {
  write_bytes(k_, "{");
  write_bytes(checksum_, "short");
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out, "not restorable: " + k_)) << done.out;
  EXPECT_TRUE(has(done.out, "not restorable: " + checksum_)) << done.out;
  EXPECT_EQ(read_bytes(k_), "{");
}

TEST_F(Repair, RefusesAPublishedKThatIsDamagedItself) {
  write_bytes(k_, "{");
  write_bytes(published(".k"), "{");
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out, "the service's K is damaged: ")) << done.out;
}

TEST_F(Repair, RestoresTheRolledBackKWhileTheServiceOffersIt) {
  put("Wlan/a", "ssid=bad");
  publish_source();
  ASSERT_EQ(cycle("--roll-back").status, 5);
  const std::string corrupted = conf("knowledge/corrupted.k");
  const std::string good = read_bytes(corrupted);
  write_bytes(corrupted, "{");
  EXPECT_EQ(repair().status, clean);
  EXPECT_EQ(read_bytes(corrupted), good);
  EXPECT_EQ(cycle("--commit").status, 4);
}

TEST_F(Repair, BringsFilesBackBesideTheKThatWasRolledBack) {
  put("Wlan/a", "ssid=bad");
  publish_source();
  ASSERT_EQ(cycle("--roll-back").status, 5);
  write_bytes(conf("knowledge/corrupted.k"), "{");
  write_bytes(conf("config/Zone/z/1"), "damaged");
  EXPECT_EQ(repair().status, clean);
  EXPECT_EQ(read_bytes(conf("config/Zone/z/1")), "country=DE");
}

TEST_F(Repair, BringsFilesBackBesideAKThatTheServiceDoesNotHave) {
  put("Wlan/a", "ssid=second");
  commit_source();
  write_bytes(conf("knowledge/prev_subsys.k"), "{");
  write_bytes(conf("config/Zone/z/1"), "country=FR");
  const finished done = run({"verify", "--repair", "--index", "unknown"});
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out, "not restorable: ")) << done.out;
  EXPECT_EQ(read_bytes(conf("config/Zone/z/1")), "country=DE");
}

TEST_F(Repair, RestoresOneKInTwoPlaces) {
  ASSERT_EQ(cycle("--commit").status, 3);
  const std::string good = read_bytes(k_);
  const std::string last = conf("knowledge/prev_subsys.k");
  ASSERT_EQ(read_bytes(last), good);
  write_bytes(k_, "{");
  write_bytes(last, "{");
  EXPECT_EQ(repair().status, clean);
  EXPECT_EQ(read_bytes(k_), good);
  EXPECT_EQ(read_bytes(last), good);
}

TEST_F(Repair, SaysThatDamageOfTheScratchAreaStays) {
  put("Wlan/a", "ssid=second");
  publish_source();
  ASSERT_EQ(run({"cycle", "--index", index_}).status, 0);
  const std::string scratch = dir_ / "device/tmp/zot/subsys.k";
  write_bytes(scratch, "{");
  const finished done = run({"verify", "--strict", "--repair", "--index", index_});
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out, "not restorable: " + scratch + ": the scratch area is not repaired"))
      << done.out;
}

TEST_F(Repair, SaysThatTheLastKIsNotOffered) {
  put("Wlan/a", "ssid=second");
  commit_source();
  const std::string last = conf("knowledge/prev_subsys.k");
  write_bytes(last, "{");
  write_bytes(conf("config/Zone/z/1"), "country=FR");
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(
      has(done.out, "not restorable: " + last + ": the service does not offer the K of this slot"))
      << done.out;
  EXPECT_EQ(read_bytes(conf("config/Zone/z/1")), "country=DE");
}

// While one of its files was damaged, the configuration was not in force, so it could be offered
// again and rolled back.
TEST_F(Repair, BringsNothingBackOfWhatWasRolledBack) {
  write_bytes(conf("config/Wlan/a/1"), "damaged");
  ASSERT_EQ(cycle("--roll-back").status, 5);
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out + done.err, "this configuration was rolled back"))
      << done.out << done.err;
  EXPECT_EQ(read_bytes(conf("config/Wlan/a/1")), "damaged");
}

TEST_F(Repair, BringsNoKBackThatWasRolledBack) {
  write_bytes(k_, "{");
  ASSERT_EQ(cycle("--roll-back").status, 5);
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out + done.err, "this configuration was rolled back"))
      << done.out << done.err;
  EXPECT_EQ(read_bytes(k_), "{");
}

TEST_F(Repair, KnowsWhatWasRolledBackByItsChecksumFileAlone) {
  write_bytes(conf("config/Wlan/a/1"), "damaged");
  ASSERT_EQ(cycle("--roll-back").status, 5);
  write_bytes(conf("knowledge/corrupted.k"), "{");
  EXPECT_EQ(repair().status, damaged);
  EXPECT_EQ(repair().status, damaged);
  EXPECT_EQ(read_bytes(conf("config/Wlan/a/1")), "damaged");
}

TEST_F(Repair, LeavesNoFolderBehind) {
  std::filesystem::create_directories(conf(".repair/stale"));
  write_bytes(k_, "{");
  std::filesystem::remove_all(conf("config/Wlan/a/1"));
  ASSERT_EQ(repair().status, clean);
  EXPECT_FALSE(exists(conf(".repair")));
}

TEST_F(Repair, RefusesToWriteInDevMode) {
  std::filesystem::remove(conf("config/Wlan/a/1"));
  environment dev = variables();
  dev["ZOT_DEV_PATH"] = conf("");
  const finished done = run_zotconf({"verify", "--repair", "--index", index_}, dev);
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, "dev mode: ")) << done.err;
  EXPECT_FALSE(exists(conf("config/Wlan/a/1")));
}

TEST_F(Repair, WritesJson) {
  std::filesystem::remove_all(conf("config/Wlan"));
  std::filesystem::remove(dir_ / "pub/config/Wlan/b/1");
  const json_value told(repair({"--json"}).out);
  ASSERT_EQ(told["repairs"].size(), 2);
  EXPECT_EQ(told["repairs"][0]["path"].text(), conf("config/Wlan/a/1"));
  EXPECT_EQ(told["repairs"][0]["result"].text(), "repaired");
  EXPECT_TRUE(told["repairs"][0]["text"].is_null());
  EXPECT_EQ(told["repairs"][1]["result"].text(), "not_available");
  EXPECT_EQ(told["repairs"][1]["text"].text(), "Unable to get remote files");
  EXPECT_TRUE(told["service_error"].is_null());
  ASSERT_EQ(told["damaged"].size(), 1);
  EXPECT_EQ(told["damaged"][0]["path"].text(), conf("config/Wlan/b/1"));
  EXPECT_EQ(told["result"].text(), "damaged");
}

TEST_F(Repair, WritesTheErrorOfTheServiceAsJson) {
  std::filesystem::remove(conf("config/Wlan/a/1"));
  service_->stop(SIGTERM);
  const json_value told(repair({"--json"}).out);
  EXPECT_EQ(told["service_error"]["code"].number(), -6);
  EXPECT_EQ(told["service_error"]["name"].text(), "ZOT_ERR_REMOTE_UNAVAIL");
  EXPECT_EQ(told["repairs"].size(), 0);
}

TEST_F(Repair, NeedsTheIndexOfTheElement) {
  EXPECT_EQ(run({"verify", "--repair"}).status, usage);
}

TEST_F(Repair, AsksForManyFilesInTurns) {
  for (int i = 0; i < 300; ++i) {
    put("Vlan/" + std::to_string(i), "id=" + std::to_string(i));
  }
  commit_source();
  std::filesystem::remove_all(conf("config/Vlan"));
  EXPECT_EQ(repair().status, clean);
  EXPECT_EQ(read_bytes(conf("config/Vlan/299/1")), "id=299");
}

TEST_F(Repair, LetsTheLibraryUndoAnInterruptedCommitFirst) {
  const std::string k = read_bytes(k_);
  const interrupted_commit commit(conf_root_);
  commit.rotate_k("{");
  commit.keep_files();
  commit.write_file("Wlan/a/2", "half");
  std::filesystem::remove(commit.undo("config/Zone/z/1"));
  const finished done = repair();
  EXPECT_EQ(done.status, clean) << done.out << done.err;
  EXPECT_TRUE(has(done.out, "repaired: " + conf("undo") + "\n")) << done.out;
  EXPECT_TRUE(has(done.out, "repaired: " + conf("config/Zone/z/1") + "\n")) << done.out;
  EXPECT_FALSE(exists(conf("undo")));
  EXPECT_EQ(read_bytes(k_), k);
  EXPECT_EQ(tree(conf("config")),
            (std::vector<std::string>{"Ap/x/1", "Wlan/a/1", "Wlan/b/1", "Zone/z/1"}));
}

TEST_F(Repair, NeedsNoServiceToUndoACommit) {
  service_->stop(SIGTERM);
  const interrupted_commit commit(conf_root_);
  commit.rotate_k("{");
  EXPECT_EQ(repair().status, clean);
  EXPECT_FALSE(exists(conf("undo")));
}

TEST_F(Repair, StopsAtACommitThatTheLibraryCannotUndo) {
  const interrupted_commit commit(conf_root_);
  std::filesystem::remove(commit.undo("subsys.k"));
  std::filesystem::create_directories(commit.undo("subsys.k"));
  std::filesystem::remove(conf("config/Zone/z/1"));
  const finished done = repair();
  EXPECT_EQ(done.status, damaged);
  EXPECT_TRUE(has(done.out, "not restorable: " + conf("undo") +
                                ": the library could not put back what it keeps\n"))
      << done.out;
  EXPECT_FALSE(exists(conf("config/Zone/z/1")));
}

TEST_F(Repair, TouchesNothingWhileACommitGoesOn) {
  const interrupted_commit commit(conf_root_);
  write_bytes(conf("config/Zone/z/1"), "country=FR");
  const held_lock running(conf_root_);
  const auto before = snapshot(dir_ / "device");
  const finished done = repair();
  EXPECT_EQ(done.status, failed);
  EXPECT_EQ(done.err,
            "zotconf: nothing was repaired: a commit is in progress\ntry: zotconf status\n");
  EXPECT_EQ(snapshot(dir_ / "device"), before);
}

TEST_F(Repair, PutsNothingBesideWhatAnotherProcessCommitsMeanwhile) {
  write_bytes(conf("config/Zone/z/1"), "country=FR");
  std::unique_ptr<held_lock> other = std::make_unique<held_lock>(conf_root_);
  const watched_file last_of_k(conf("config/Zone/z/1"));
  background running({"verify", "--repair", "--index", index_}, variables());
  wait_for_the_lock(running, last_of_k);
  const interrupted_commit commit(conf_root_);
  other.reset();
  EXPECT_EQ(running.wait(), failed);
  EXPECT_TRUE(has(running.err(), conf_root_ + ": changed by another process during the repair"))
      << running.err();
  EXPECT_EQ(read_bytes(conf("config/Zone/z/1")), "country=FR");
}

TEST_F(Repair, BringsNothingBackOfWhatAnotherProcessRollsBackMeanwhile) {
  write_bytes(conf("config/Zone/z/1"), "damaged");
  std::unique_ptr<held_lock> other = std::make_unique<held_lock>(conf_root_);
  const watched_file last_of_k(conf("config/Zone/z/1"));
  background running({"verify", "--repair", "--index", index_}, variables());
  wait_for_the_lock(running, last_of_k);
  std::filesystem::copy(k_, conf("knowledge/corrupted.k"));
  std::filesystem::copy(checksum_, conf("knowledge/corrupted.checksum"));
  other.reset();
  EXPECT_EQ(running.wait(), failed);
  EXPECT_TRUE(has(running.err(), conf_root_ + ": changed by another process during the repair"))
      << running.err();
  EXPECT_EQ(read_bytes(conf("config/Zone/z/1")), "damaged");
}

}  // namespace
}  // namespace zot::test
