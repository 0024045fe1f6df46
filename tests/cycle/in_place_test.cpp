// SPDX-License-Identifier: Apache-2.0
// A medium with space for one configuration only: the new files replace the old ones in place.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cycle_checks.hpp"
#include "tests/support/media.hpp"
#include "tests/support/service.hpp"
#include "utilities/owner.hpp"

namespace {
using namespace zot::test;

namespace fs = std::filesystem;

constexpr const char *warning =
    "No room for the new files beside the old ones, which go first: a power cut would "
    "leave none\n";
// One page per file. K, its checksum and three files take five pages.
constexpr const char *nine_pages = "size=36k";

bool write_text(const char *path, const std::string &text) {
  std::ofstream file(path);
  file << text << std::flush;
  return file.good();
}

// Enters a namespace that allows mounts. A user who is not root keeps the same user id in it.
bool unshare_mounts() {
  const std::string user = std::to_string(::geteuid());
  const std::string group = std::to_string(::getegid());
  if (::geteuid() == 0) {
    return ::unshare(CLONE_NEWNS) == 0;
  }
  return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
         write_text("/proc/self/setgroups", "deny") &&
         write_text("/proc/self/uid_map", user + " " + user + " 1") &&
         write_text("/proc/self/gid_map", group + " " + group + " 1");
}

// Only this process and the commands that it starts see these mounts.
bool has_mounts_of_its_own() {
  static const bool has =
      unshare_mounts() && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return has;
}

// Only these tests use the namespace's capabilities; all others have the permissions of a user.
void use_capabilities(bool are_used) {
  if (::geteuid() == 0) {
    return;
  }
  __user_cap_header_struct of_this_process{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  ASSERT_EQ(::syscall(SYS_capget, &of_this_process, sets.data()), 0);
  for (__user_cap_data_struct &set : sets) {
    set.effective = are_used ? set.permitted : 0;
  }
  ASSERT_EQ(::syscall(SYS_capset, &of_this_process, sets.data()), 0);
}

// The first configuration is in force, and the second waits for its verdict.
class InPlace : public testing::Test {
 protected:
  // The kernel creates a user namespace only for a single-threaded process, and the service starts
  // a thread.
  static void SetUpTestSuite() { ASSERT_TRUE(has_mounts_of_its_own()); }
  void SetUp() override {
    use_capabilities(true);
    fs::create_directories(e.conf_root());
    bring_first_to_medium();
    ASSERT_EQ(get_of(next_configuration()).status, ZOT_OK);
    e.log().clear();
  }
  void TearDown() override {
    e.stop();
    ::umount2(e.conf_root().c_str(), MNT_DETACH);
    use_capabilities(false);
  }
  virtual void bring_first_to_medium() {
    ASSERT_EQ(::mount("none", e.conf_root().c_str(), "tmpfs", 0, nine_pages), 0);
    e.restart();
    bring_to(first_configuration());
  }
  [[nodiscard]] virtual publication next_configuration() const { return second_configuration(); }
  returned_list get_of(const publication &published) {
    remote.publish(published);
    return e.get();
  }
  void bring_to(const publication &published) {
    ASSERT_EQ(get_of(published).status, ZOT_OK);
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  }
  void expect_refused(int status, const std::string &text) {
    const auto cache = contents(e.conf_root());
    EXPECT_EQ(zot_conf_commit(e.handle()), status);
    EXPECT_TRUE(e.error_text().starts_with("[zot_priv_commit_conf]: " + text)) << e.error_text();
    EXPECT_EQ(contents(e.conf_root()), cache);
    EXPECT_FALSE(exists(e.conf_root() + "undo"));
  }
  void expect_changed() {
    expect_refused(ZOT_ERR_CORRUPTED, "what the get fetched was changed in " + e.tmp_root());
  }
  void expect_no_room() { expect_refused(ZOT_ERR_GENERIC, "no room in " + e.conf_root()); }
  // A process that starts now, without a service.
  void expect_in_force_alone(const publication &published) {
    e.set_port(closed_port());
    e.restart();
    EXPECT_EQ(e.get(ZOT_STAT_CACHED).status, ZOT_OK) << e.error_text();
    EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), published));
  }
  [[nodiscard]] std::string old_file() const { return e.conf_root() + "config/Wlan/guest/1"; }

  service remote;
  element e{element_options{.port = remote.port(), .start = false}};
};

TEST_F(InPlace, TheNewFilesReplaceTheOldOnes) {
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_WARN, gpb_file_topics, "zot_priv_commit_conf", warning}));
  expect_in_force_alone(second_configuration());
}

TEST_F(InPlace, NothingIsReplacedByAFileThatWasLost) {
  fs::remove(e.tmp_root() + "/config/Wlan/staff/1");
  expect_changed();
  expect_in_force_alone(first_configuration());
}

TEST_F(InPlace, NothingIsReplacedByAFileOfAnotherSize) {
  fs::resize_file(e.tmp_root() + "/config/Wlan/staff/1", 3);
  expect_changed();
}

TEST_F(InPlace, NothingIsReplacedByAFolderThatWasLost) {
  fs::remove_all(e.tmp_root() + "/config");
  expect_changed();
}

TEST_F(InPlace, NothingIsReplacedByAScratchFolderThatWasLost) {
  fs::remove_all(e.tmp_root());
  expect_changed();
  expect_in_force_alone(first_configuration());
}

TEST_F(InPlace, WhatLiesInTheScratchFolderBesideIsNotCopied) {
  write_bytes(e.tmp_root() + "/config/Ap/stranger", std::string(50000, 's'));
  fs::create_directories(e.tmp_root() + "/config/Ap/empty");
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_FALSE(exists(e.conf_root() + "config/Ap"));
  expect_in_force_alone(second_configuration());
}

// A commit whose `rm` fails leaves such a folder behind.
TEST_F(InPlace, WhatAnEarlierCommitCouldNotRemoveTakesNoRoom) {
  write_bytes(e.conf_root() + "undo.old/config/Wlan/old/1", std::string(16384, 'o'));
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_FALSE(exists(e.conf_root() + "undo.old"));
  expect_in_force_alone(second_configuration());
}

TEST_F(InPlace, FilesWithASecondNameGiveNoRoomBack) {
  fs::create_directories(e.conf_root() + "backup");
  for (const std::string &name : tree(e.conf_root() + "config")) {
    const std::string second = e.conf_root() + "backup/" + name;
    fs::create_directories(fs::path(second).parent_path());
    fs::create_hard_link(e.conf_root() + "config/" + name, second);
  }
  expect_no_room();
}

TEST_F(InPlace, FilesThatAreHeldOpenGiveNoRoomBack) {
  std::vector<zot::descriptor> held;
  for (const std::string &name : tree(e.conf_root() + "config")) {
    held.emplace_back(::open((e.conf_root() + "config/" + name).c_str(), O_RDONLY | O_CLOEXEC));
  }
  expect_no_room();
  held.clear();
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
}

TEST_F(InPlace, WhatAnotherHasCommittedIsNotReplaced) {
  fs::remove_all(e.conf_root() + "config");
  third_configuration().install_cache(e.conf_root());
  expect_refused(ZOT_ERR_CORRUPTED, "another process has decided otherwise in " + e.conf_root());
  EXPECT_EQ(e.get().status, ZOT_OK);
  expect_refused(ZOT_ERR_GENERIC, "fail to keep the files of " + e.conf_root());
  EXPECT_EQ(e.get().status, ZOT_OK);
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_LAST).k), third_configuration().k_text());
  expect_in_force_alone(second_configuration());
}

// What this process does not hold in memory could not be restored.
TEST_F(InPlace, WhatMemoryDoesNotHoldIsNotReplaced) {
  write_bytes(knowledge_of(e) + "/subsys.k", third_configuration().k_text());
  expect_refused(ZOT_ERR_GENERIC, "fail to keep the files of " + e.conf_root());
  EXPECT_EQ(e.get().status, ZOT_OK);
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  expect_in_force_alone(second_configuration());
}

TEST_F(InPlace, WhatCouldNotBeLoadedIsLoadedBeforeItIsReplaced) {
  const std::string k = knowledge_of(e) + "/subsys.k";
  fs::rename(k, k + ".away");
  e.restart();
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  fs::rename(k + ".away", k);
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_LAST).k), first_configuration().k_text());
  expect_in_force_alone(second_configuration());
}

// A process that gets and commits only once has no second get.
TEST_F(InPlace, WhatNobodyCanLoadIsReplaced) {
  write_bytes(knowledge_of(e) + "/subsys.k", "{");
  e.restart();
  ASSERT_EQ(get_of(second_configuration()).status, ZOT_OK);
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  expect_in_force_alone(second_configuration());
}

TEST_F(InPlace, WhatTheProcessMayNotWriteAgainIsNotReplaced) {
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const struct rlimit less_than_a_file { 8, before.rlim_max };
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &less_than_a_file), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  expect_refused(ZOT_ERR_GENERIC, "fail to keep the files of " + e.conf_root());
  std::signal(SIGXFSZ, handler);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
}

TEST_F(InPlace, WhatTheMediumDoesNotTakeLeavesTheOldFiles) {
  media().failing_call = 2;
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
  EXPECT_TRUE(e.error_text().starts_with("[zot_priv_commit_conf]: fail to sync "))
      << e.error_text();
  expect_in_force_alone(first_configuration());
}

// The copy creates something and then fails.
class InPlaceWithAFailure : public InPlace {
 protected:
  void SetUp() override {
    InPlace::SetUp();
    if (!IsSkipped()) {
      break_cp("");
    }
  }
  void break_cp(const std::string &more) {
    const std::string program = e.dir() / "bin/cp";
    write_bytes(program, "#!/bin/sh\nmkdir -p \"$3/Wlan/guest/1\"\n" + more + "\nexit 1\n");
    fs::permissions(program, fs::perms::owner_all);
    path_.set(e.dir() / "bin" + std::string(":") + std::getenv("PATH"));
  }
  void mend_cp() { fs::remove(e.dir() / "bin/cp"); }
  void fail_to_commit() {
    ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
    EXPECT_TRUE(e.error_text().starts_with("[zot_priv_commit_gpb]:fail to copy from "))
        << e.error_text();
  }

  const env_guard path_{"PATH", std::getenv("PATH")};
};

TEST_F(InPlaceWithAFailure, TheOldFilesAreInForceForANewProcess) {
  fail_to_commit();
  expect_in_force_alone(first_configuration());
}

TEST_F(InPlaceWithAFailure, TheCommitMayBeCalledAgain) {
  fail_to_commit();
  fail_to_commit();
  mend_cp();
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(read_bytes(knowledge_of(e) + "/prev_subsys.k"), first_configuration().k_text());
  expect_in_force_alone(second_configuration());
}

TEST_F(InPlaceWithAFailure, AGetUndoesItWhenItFailsAgain) {
  fail_to_commit();
  EXPECT_EQ(e.get().status, ZOT_OK) << e.error_text();
  EXPECT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_CURRENT).k), first_configuration().k_text());
  mend_cp();
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  expect_in_force_alone(second_configuration());
}

TEST_F(InPlaceWithAFailure, ARollBackLeavesTheOldFiles) {
  fail_to_commit();
  ASSERT_EQ(zot_conf_roll_back(e.handle()), ZOT_OK) << e.error_text();
  expect_in_force_alone(first_configuration());
}

TEST_F(InPlaceWithAFailure, ItIsSaidWhenThereIsNoRoomForTheOldFilesEither) {
  break_cp("dd if=/dev/zero of=\"$3/../filled\" 2>/dev/null");
  ASSERT_EQ(zot_conf_commit(e.handle()), ZOT_ERR_GENERIC);
  EXPECT_EQ(e.error_text(), "[zot_priv_commit_conf]: fail to restore " + e.conf_root() +
                                ": No space left on device");
  fs::remove(e.conf_root() + "filled");
  mend_cp();
  EXPECT_EQ(zot_conf_commit(e.handle()), ZOT_OK) << e.error_text();
  expect_in_force_alone(second_configuration());
}

// On an overlay, what is removed stays on the lower layer and frees no space.
class InPlaceOfAnOverlay : public InPlace {
 protected:
  void bring_first_to_medium() override {
    e.restart();
    bring_to(large());
    e.stop();
    const std::string upper = e.dir() / "upper";
    fs::create_directories(upper);
    ASSERT_EQ(::mount("none", upper.c_str(), "tmpfs", 0, "size=180k"), 0);
    fs::create_directories(upper + "/files");
    fs::create_directories(upper + "/work");
    const std::string options =
        "lowerdir=" + e.conf_root() + ",upperdir=" + upper + "/files,workdir=" + upper + "/work";
    ASSERT_EQ(::mount("none", e.conf_root().c_str(), "overlay", 0, options.c_str()), 0);
    e.restart();
  }
  // The medium has space for this once, or for this in place of the old configuration.
  static publication large() { return first_configuration().put("Vpn", "huge", 1, noise(200000)); }
  [[nodiscard]] publication next_configuration() const override {
    return large().config_id("00000000-0000-0000-0000-000000000004");
  }
  void TearDown() override {
    e.stop();
    ::umount2(e.conf_root().c_str(), MNT_DETACH);
    ::umount2((e.dir() / "upper").c_str(), MNT_DETACH);
    InPlace::TearDown();
  }
};

TEST_F(InPlaceOfAnOverlay, NothingIsReplaced) {
  expect_no_room();
  expect_in_force_alone(large());
}

}  // namespace
