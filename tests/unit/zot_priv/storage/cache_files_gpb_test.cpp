// SPDX-License-Identifier: Apache-2.0
// The cached GPB files at commit.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/env.hpp"
#include "tests/unit/zot_priv/storage/storage_records.hpp"

namespace {

using namespace zot::test;
using lines = std::vector<std::string>;
namespace fs = std::filesystem;

constexpr const char *commit_gpb = "zot_priv_commit_gpb";

struct pending_files {
  explicit pending_files(element_options options = {}) : tested(std::move(options)) {
    write_bytes(cached() + "/Wlan/gone/1", "cached before");
    write_bytes(fresh() + "/Wlan/office/2", "new bytes");
    tested.log().clear();
    mark_status(tested.handle());
  }

  int run() { return zot_priv_commit_gpb(tested.handle(), nullptr); }

  [[nodiscard]] std::string cached() const {
    return std::string(tested.handle()->conf_root) + "/config";
  }
  [[nodiscard]] std::string fresh() const { return tested.handle()->tmp_gpb_root; }
  // The cached directory as messages spell it.
  [[nodiscard]] std::string spelled() const {
    return std::string(tested.handle()->conf_root) + "//config";
  }
  [[nodiscard]] std::string command() const {
    return "cp -r \"" + fresh() + "\" \"" + spelled() + "\"";
  }

  element tested;
};

TEST(CommitGpb, MissingHandleIsRefused) {
  EXPECT_EQ(zot_priv_commit_gpb(nullptr, nullptr), ZOT_ERR_NULL_INPUT);
}

TEST(CommitGpb, CachedFilesAreReplacedByTheNewOnes) {
  pending_files pending;
  ASSERT_EQ(pending.run(), ZOT_OK) << pending.tested.error_text();
  EXPECT_EQ(tree(pending.cached()), std::vector<std::string>{"Wlan/office/2"});
  EXPECT_EQ(read_bytes(pending.cached() + "/Wlan/office/2"), "new bytes");
}

TEST(CommitGpb, FilesOfTheScratchDirectoryStay) {
  pending_files pending;
  ASSERT_EQ(pending.run(), ZOT_OK);
  EXPECT_EQ(tree(pending.fresh()), std::vector<std::string>{"Wlan/office/2"});
}

TEST(CommitGpb, FirstCommitCreatesTheDirectory) {
  pending_files pending;
  fs::remove_all(pending.cached());
  ASSERT_EQ(pending.run(), ZOT_OK) << pending.tested.error_text();
  EXPECT_EQ(tree(pending.cached()), std::vector<std::string>{"Wlan/office/2"});
}

TEST(CommitGpb, StepsAreLoggedInOrder) {
  pending_files pending;
  ASSERT_EQ(pending.run(), ZOT_OK);
  const lines expected = {"2 18 Remove current GPB from cached storage: Done\n",
                          "3 18 Run CMD: rm -rf \"" + pending.spelled() + "\"\n",
                          "2 1 Run system command: " + pending.command() + " done, ret = 0\n",
                          "2 18 Copy new GPB to cached storage: Done\n",
                          "3 18 Run CMD: " + pending.command() + "\n",
                          "3 1 Success\n"};
  EXPECT_EQ(lines_of(pending.tested.log(), commit_gpb), expected);
}

TEST(CommitGpb, SuccessIsRecorded) {
  pending_files pending;
  ASSERT_EQ(pending.run(), ZOT_OK);
  EXPECT_EQ(pending.tested.error_text(), "Success");
  EXPECT_EQ(pending.tested.handle()->err, ZOT_OK);
}

TEST(CommitGpb, MissingNewDirectoryFailsTheCommit) {
  pending_files pending;
  fs::remove_all(pending.fresh());
  EXPECT_EQ(pending.run(), ZOT_ERR_GENERIC);
  EXPECT_EQ(pending.tested.error_text(), "[zot_priv_commit_gpb]:fail to copy from " +
                                             pending.fresh() + " to " + pending.spelled());
}

TEST(CommitGpb, CachedDirectoryIsGoneWhenTheCopyFails) {
  pending_files pending;
  fs::remove_all(pending.fresh());
  ASSERT_EQ(pending.run(), ZOT_ERR_GENERIC);
  EXPECT_FALSE(exists(pending.cached()));
}

TEST(CommitGpb, FailedCopyIsLoggedAsAnErrorWithoutANewline) {
  pending_files pending;
  fs::remove_all(pending.fresh());
  ASSERT_EQ(pending.run(), ZOT_ERR_GENERIC);
  const log_record *const line = pending.tested.log().find_part(
      "fail to copy from " + pending.fresh() + " to " + pending.spelled() + ":ret = 1, err = ");
  ASSERT_NE(line, nullptr) << pending.tested.log().dump();
  EXPECT_EQ(line->level, static_cast<uint32_t>(ZOT_LOG_ERROR));
  EXPECT_EQ(line->mask, 18U);
  EXPECT_FALSE(line->text.ends_with('\n'));
}

TEST(CommitGpb, FailedCopyIsNotReportedAsDone) {
  pending_files pending;
  fs::remove_all(pending.fresh());
  ASSERT_EQ(pending.run(), ZOT_ERR_GENERIC);
  EXPECT_FALSE(pending.tested.log().contains_part("Copy new GPB to cached storage"));
}

TEST(CommitGpb, CommitCanBeRepeatedAfterAFailedCopy) {
  pending_files pending;
  fs::rename(pending.fresh(), pending.tested.dir() / "aside");
  ASSERT_EQ(pending.run(), ZOT_ERR_GENERIC);
  fs::rename(pending.tested.dir() / "aside", pending.fresh());
  EXPECT_EQ(pending.run(), ZOT_OK);
  EXPECT_EQ(tree(pending.cached()), std::vector<std::string>{"Wlan/office/2"});
}

// A signal that ends the shell also ends the copy.
TEST(CommitGpb, CommandsRunInPlaceOfTheirShells) {
  pending_files pending;
  const std::string bin = pending.tested.dir() / "bin";
  for (const std::string name : {"cp", "rm"}) {
    write_bytes(bin + "/" + name, "#!/bin/sh\necho " + name + " $PPID >> " + bin + "/parents\n" +
                                      "exec /bin/" + name + " \"$@\"\n");
    fs::permissions(bin + "/" + name, fs::perms::owner_all);
  }
  const env_guard path("PATH", bin + ":" + std::getenv("PATH"));
  ASSERT_EQ(pending.run(), ZOT_OK) << pending.tested.error_text();
  const std::string self = std::to_string(::getpid());
  EXPECT_EQ(read_bytes(bin + "/parents"), "rm " + self + "\ncp " + self + "\n");
}

// If the directory could not be removed, the copy would land inside it.
TEST(CommitGpb, DirectoryThatCannotBeRemovedFailsTheCommit) {
  pending_files pending;
  const std::string root = pending.tested.dir() / "a conf";
  set_text(pending.tested.handle()->conf_root, root);
  write_bytes(root + "/config/Wlan/gone/1", "cached before");
  EXPECT_EQ(pending.run(), ZOT_ERR_GENERIC);
  EXPECT_EQ(pending.tested.error_text(),
            "[zot_priv_commit_gpb]:fail to remove " + root + "//config");
  EXPECT_EQ(tree(root + "/config"), std::vector<std::string>{"Wlan/gone/1"});
}

struct commit_note {
  zot_ctx *handle = nullptr;
  std::string root;
  zot_list *gpbs = nullptr;
};
commit_note noted;

int note_commit(zot_ctx *handle, const char *tmp_gpb_root, zot_list *gpbs) {
  noted = {handle, tmp_gpb_root, gpbs};
  return ZOT_ERR_TIMEOUT;
}

TEST(CommitGpb, CommitOfTheSubSystemTakesThePlaceOfTheCopy) {
  pending_files pending;
  zot_list gpbs;
  zot_list_init(&gpbs);
  pending.tested.handle()->fns.commit_gpb = note_commit;
  EXPECT_EQ(zot_priv_commit_gpb(pending.tested.handle(), &gpbs), ZOT_ERR_TIMEOUT);
  EXPECT_EQ(noted.handle, pending.tested.handle());
  EXPECT_EQ(noted.root, pending.tested.handle()->tmp_gpb_root);
  EXPECT_EQ(noted.gpbs, &gpbs);
}

TEST(CommitGpb, CommitOfTheSubSystemLeavesTheCachedFilesToIt) {
  pending_files pending;
  pending.tested.handle()->fns.commit_gpb = note_commit;
  pending.run();
  EXPECT_EQ(tree(pending.cached()), std::vector<std::string>{"Wlan/gone/1"});
}

TEST(CommitGpb, DevModeWritesNothing) {
  temp_dir dir;
  pending_files pending({.dev_path = dir.path()});
  EXPECT_EQ(pending.run(), ZOT_OK);
  EXPECT_EQ(tree(pending.cached()), std::vector<std::string>{"Wlan/gone/1"});
}

TEST(CommitGpb, DevModeIsLogged) {
  temp_dir dir;
  pending_files pending({.dev_path = dir.path()});
  pending.run();
  const lines expected = {"2 10 Is dev mode, do not commit gpb\n", "3 1 Success\n"};
  EXPECT_EQ(lines_of(pending.tested.log(), commit_gpb), expected);
}

TEST(CommitGpb, DevModeComesBeforeTheCommitOfTheSubSystem) {
  temp_dir dir;
  pending_files pending({.dev_path = dir.path()});
  noted = {};
  pending.tested.handle()->fns.commit_gpb = note_commit;
  EXPECT_EQ(pending.run(), ZOT_OK);
  EXPECT_EQ(noted.handle, nullptr);
}

}  // namespace
