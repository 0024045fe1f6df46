// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/prune.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <chrono>
#include <csignal>
#include <set>
#include <sstream>
#include <thread>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/pruning.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;

// The kernel marks waiting processes with an arrow: "7: -> FLOCK  ADVISORY  WRITE <pid> ...".
bool is_waiting_for_a_lock(pid_t pid) {
  std::istringstream locks(read_bytes("/proc/locks"));
  for (std::string line; std::getline(locks, line);) {
    if (line.find("-> FLOCK") != std::string::npos &&
        line.find(" " + std::to_string(pid) + " ") != std::string::npos) {
      return true;
    }
  }
  return false;
}

class Prune : public Pruning {
 protected:
  // The first file that K does not name; empty when there is none.
  [[nodiscard]] std::string first_unnamed() const {
    std::set<std::string> named;
    for (const auto &file : k().files) {
      named.insert(file.category_name + "/" + file.key + "/" + std::to_string(file.version));
    }
    for (const std::string &name : files()) {
      if (!named.contains(name)) {
        return name;
      }
    }
    return "";
  }
};

TEST_F(Prune, RemovesAVersionThatNoKNames) {
  publish_twice();
  const finished done = prune();
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.out,
            "pruned: 1 files removed, 0 folders removed, 3 bytes removed; 1 files listed by 1 K, 0 "
            "files kept for the grace period\n");
  EXPECT_EQ(files(), std::vector<std::string>{"Wlan/a/2"});
}

TEST_F(Prune, KeepsWhatTheKOfAnyElementNames) {
  put("Wlan/a", "one");
  ASSERT_EQ(publish_for("other").status, 0);
  put("Wlan/a", "second");
  ASSERT_EQ(run_zotconf({"publish", source_, "--out", publication_, "--subsys", "DP", "--index",
                         "dp", "--cluster", "c"})
                .status,
            0);
  publish_bytes("Wlan/a", "the third");
  publish_bytes("Wlan/a", "and the fourth");
  ASSERT_EQ(prune().status, 0);
  EXPECT_EQ(files(), (std::vector<std::string>{"Wlan/a/1", "Wlan/a/2", "Wlan/a/4"}));
}

TEST_F(Prune, LeavesAPublicationThatAnElementCanTake) {
  publish_twice();
  ASSERT_EQ(prune().status, 0);
  const serving service(publication_);
  const finished done = run_zotconf({"cycle", "--index", "001122334455", "--commit"},
                                    {{"ZOT_DEV_PATH", ""},
                                     {"ZOT_PREFIX_CONF_ROOT", dir_ / "device"},
                                     {"ZOT_PREFIX_TMP_ROOT", dir_ / "device"},
                                     {"ZOT_REMOTE_PORT", std::to_string(service.port())}});
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_EQ(read_bytes(dir_ / "device/writable/zot/config/Wlan/a/2"), "second");
}

TEST_F(Prune, RemovesFoldersThatBecomeEmpty) {
  publish_bytes("Wlan/a", "one");
  publish_bytes("Zone/z", "two");
  remove_source("Zone/z");
  ASSERT_EQ(run().status, 0);
  const finished done = prune();
  EXPECT_NE(done.out.find("1 files removed, 2 folders removed"), std::string::npos) << done.out;
  EXPECT_FALSE(holds("config/Zone"));
  EXPECT_TRUE(holds("config/Wlan/a/1"));
}

TEST_F(Prune, KeepsAFileForTheGraceSinceKDroppedIt) {
  publish_bytes("Wlan/a", "one");
  set_age("config/Wlan/a/1", 24h);
  publish_bytes("Wlan/a", "second");
  EXPECT_NE(prune({}).out.find("1 files kept for the grace period"), std::string::npos);
  EXPECT_EQ(files().size(), 2U);
}

TEST_F(Prune, RemovesAFileAfterItsGrace) {
  publish_twice();
  set_age("config/Wlan/a/1", 50min);
  ASSERT_EQ(prune({}).status, 0);
  EXPECT_EQ(files().size(), 2U);
  set_age("config/Wlan/a/1", 61min);
  ASSERT_EQ(prune({}).status, 0);
  EXPECT_EQ(files(), std::vector<std::string>{"Wlan/a/2"});
}

TEST_F(Prune, TakesAnotherGrace) {
  publish_twice();
  set_age("config/Wlan/a/1", 61min);
  ASSERT_EQ(prune({"--grace", "2h"}).status, 0);
  EXPECT_EQ(files().size(), 2U);
  ASSERT_EQ(prune({"--grace", "30m"}).status, 0);
  EXPECT_EQ(files().size(), 1U);
}

TEST_F(Prune, ChangesNothingInADryRun) {
  publish_twice();
  fs::remove(lock_file());
  const auto before = snapshot(publication_);
  const finished done = prune({"--grace", "0", "--dry-run"});
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.out,
            "would remove config/Wlan/a/1, 3 bytes\n"
            "would prune: 1 files removed, 0 folders removed, 3 bytes removed; 1 files listed by 1 "
            "K, 0 files kept for the grace period\n");
  EXPECT_EQ(snapshot(publication_), before);
}

TEST_F(Prune, TellsItAllAsJson) {
  publish_twice();
  publish_bytes("Zone/z", "zone");
  remove_source("Zone/z");
  ASSERT_EQ(run().status, 0);
  set_age("config/Wlan/a/1", 2h);
  write_bytes(publication_ + "/config/stray", "x");
  const json_value told(prune({"--json"}).out);
  EXPECT_EQ(told["result"].text(), "pruned");
  EXPECT_EQ(told["k_files"].number(), 1);
  EXPECT_EQ(told["grace_ms"].number(), 3600000);
  EXPECT_EQ(told["removed_files"].number(), 1);
  EXPECT_EQ(told["removed_bytes"].number(), 3);
  EXPECT_EQ(told["removed_folders"].number(), 0);
  EXPECT_EQ(told["named_files"].number(), 1);
  EXPECT_EQ(told["named_bytes"].number(), 6);
  EXPECT_EQ(told["young_files"].number(), 1);
  EXPECT_EQ(told["young_bytes"].number(), 4);
  ASSERT_EQ(told["removed"].size(), 1);
  EXPECT_EQ(told["removed"][0]["path"].text(), "config/Wlan/a/1");
  EXPECT_EQ(told["removed"][0]["size"].number(), 3);
  ASSERT_EQ(told["left_alone"].size(), 1);
  EXPECT_EQ(told["left_alone"][0].text(), "config/stray");
  EXPECT_EQ(json_value(prune({"--json", "--dry-run"}).out)["result"].text(), "would_prune");
}

TEST_F(Prune, LeavesNamesOfAnotherFormAlone) {
  publish_twice();
  const std::vector<std::string> others = {"README",      "Nonsense/a/1",
                                           "Wlan/README", "Wlan/a/.1.tmp",
                                           "Wlan/a/01",   "Wlan/a/18446744073709551615",
                                           "Wlan/a/copy", "Wlan/a/folder/1"};
  for (const std::string &name : others) {
    write_bytes(publication_ + "/config/" + name, "other");
  }
  const finished done = prune();
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.err,
            "zotconf: skipped: config/Nonsense\n"
            "zotconf: skipped: config/README\n"
            "zotconf: skipped: config/Wlan/README\n"
            "zotconf: skipped: config/Wlan/a/.1.tmp\n"
            "zotconf: skipped: config/Wlan/a/01\n"
            "zotconf: skipped: config/Wlan/a/18446744073709551615\n"
            "zotconf: skipped: config/Wlan/a/copy\n"
            "zotconf: skipped: config/Wlan/a/folder\n");
  EXPECT_EQ(files().size(), others.size() + 1);
  EXPECT_FALSE(holds("config/Wlan/a/1"));
}

TEST_F(Prune, FollowsNoLink) {
  publish_twice();
  for (const std::string name : {"elsewhere/Wlan/a/1", "elsewhere/a/1", "elsewhere/1"}) {
    write_bytes(dir_ / name, "mine");
  }
  fs::create_symlink(dir_ / "elsewhere/Wlan", publication_ + "/config/Zone");
  fs::create_symlink(dir_ / "elsewhere/a", publication_ + "/config/Wlan/b");
  fs::create_symlink(dir_ / "elsewhere/1", publication_ + "/config/Wlan/a/7");
  const finished done = prune();
  EXPECT_EQ(done.status, 0);
  for (const std::string name : {"config/Zone", "config/Wlan/b", "config/Wlan/a/7"}) {
    EXPECT_NE(done.err.find("skipped: " + name + "\n"), std::string::npos) << done.err;
    EXPECT_TRUE(holds(name)) << name;
  }
  EXPECT_EQ(tree(dir_ / "elsewhere"), (std::vector<std::string>{"1", "Wlan/a/1", "a/1"}));
}

TEST_F(Prune, LeavesALinkInThePlaceOfConfigAlone) {
  publish_twice();
  fs::rename(publication_ + "/config", dir_ / "elsewhere");
  fs::create_symlink(dir_ / "elsewhere", publication_ + "/config");
  EXPECT_EQ(prune().err, "zotconf: skipped: config\n");
  EXPECT_EQ(tree(dir_ / "elsewhere").size(), 2U);
}

TEST_F(Prune, GivesNoRemovedNumberToOtherBytes) {
  publish_twice();
  publish_bytes("Wlan/a", "one");
  ASSERT_EQ(prune().status, 0);
  EXPECT_EQ(files(), std::vector<std::string>{"Wlan/a/1"});
  publish_bytes("Wlan/a", "the third");
  EXPECT_EQ(version("Wlan", "a"), 3U);
}

TEST_F(Prune, GivesNoNumberOfARemovedObjectToOtherBytes) {
  publish_bytes("Wlan/a", "one");
  publish_bytes("Wlan/b", "one");
  publish_bytes("Wlan/b", "second");
  remove_source("Wlan/b");
  ASSERT_EQ(run().status, 0);
  ASSERT_EQ(prune().status, 0);
  EXPECT_FALSE(holds("config/Wlan/b"));
  publish_bytes("Wlan/b", "the third");
  EXPECT_EQ(version("Wlan", "b"), 3U);
}

TEST_F(Prune, LeavesAFolderAloneThatIsNoPublication) {
  write_bytes(publication_ + "/config/Wlan/a/1", "mine");
  expect_refusal(publication_);
}

TEST_F(Prune, WaitsForAPublisherAndReadsItsK) {
  publish_twice();
  const std::string k = published(k_name);
  zot::descriptor lock(::open(lock_file().c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  background beside({"prune", publication_, "--grace", "0"}, {});
  wait_until([&] { return is_waiting_for_a_lock(beside.pid()); }, "the wait for the lock");
  EXPECT_EQ(files().size(), 2U);
  std::string other = k;
  other.replace(other.find("/Wlan/a/2"), 9, "/Wlan/a/1");
  write_bytes(publication_ + "/" + k_name, other);
  write_bytes(publication_ + "/" + checksum_name, sha256_hex(other) + "\n");
  lock.close();
  EXPECT_EQ(beside.wait(), 0);
  EXPECT_EQ(files(), std::vector<std::string>{"Wlan/a/1"});
}

TEST_F(Prune, RunsBesideAPublisher) {
  put_keys(40);
  ASSERT_EQ(run().status, 0);
  std::jthread pruning([this](const std::stop_token &stop) {
    while (!stop.stop_requested()) {
      EXPECT_EQ(prune().status, 0);
    }
  });
  for (int round = 0; round < 20; ++round) {
    for (int key = 0; key < 40; key += 1 + round % 3) {
      put("Wlan/" + std::to_string(key), "round " + std::to_string(round % 4));
    }
    ASSERT_EQ(run().status, 0);
    for (const auto &file : k().files) {
      const std::string name = "config/Wlan/" + file.key + "/" + std::to_string(file.version);
      ASSERT_EQ(sha256_hex(published(name)), file.checksum) << name;
    }
  }
}

// Wherever the kill interrupts it, and also when it ends before the kill.
TEST_F(Prune, LeavesAGoodPublicationWhenItIsCutOff) {
  constexpr size_t keys = 400;
  for (const std::string bytes : {"even", "odd.", "even", "odd.", "even"}) {
    for (size_t key = 0; key < keys; ++key) {
      put("Wlan/" + std::to_string(key), bytes);
    }
    ASSERT_EQ(run().status, 0);
    const std::string first = first_unnamed();
    background beside({"prune", publication_, "--grace", "0"}, {});
    wait_until([&] { return first.empty() || !holds("config/" + first); }, "the first removal");
    beside.send(SIGKILL);
    static_cast<void>(beside.wait());
    EXPECT_EQ(run().out,
              "unchanged: 400 files, 0 new, 0 changed, 400 same, 0 removed, 1600 bytes\n");
  }
  EXPECT_EQ(prune().status, 0);
  EXPECT_EQ(files().size(), keys);
}

TEST_F(Prune, RemovesAFolderThatOneThatWasCutOffHasLeftEmpty) {
  publish_twice();
  fs::create_directories(publication_ + "/config/Zone/z");
  EXPECT_NE(prune().out.find("1 files removed, 2 folders removed"), std::string::npos);
  EXPECT_FALSE(holds("config/Zone"));
}

class PruneUsage : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(PruneUsage, RefusesTheArguments) {
  const temp_dir dir;
  std::vector<std::string> args = {"prune"};
  for (const std::string &word : GetParam()) {
    args.push_back(word == "PUB" ? dir.path() : word);
  }
  const finished done = run_zotconf(args);
  EXPECT_EQ(done.status, 2);
  EXPECT_NE(done.err, "");
}

INSTANTIATE_TEST_SUITE_P(Arguments, PruneUsage,
                         testing::Values(std::vector<std::string>{},
                                         std::vector<std::string>{"/nowhere"},
                                         std::vector<std::string>{"PUB", "--grace", "soon"},
                                         std::vector<std::string>{"PUB", "--grace", "-1h"},
                                         std::vector<std::string>{"PUB", "--unknown"}));

}  // namespace
}  // namespace zot::test
