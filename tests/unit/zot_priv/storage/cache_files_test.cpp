// SPDX-License-Identifier: Apache-2.0
// The K files at a commit and at a rotation.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/storage/storage_records.hpp"

namespace {

using namespace zot::test;
using lines = std::vector<std::string>;
namespace fs = std::filesystem;

// A new K in the scratch directory, ready for commit or rotation.
struct pending_k {
  explicit pending_k(element_options options = {}) : tested(std::move(options)) {
    fresh.install_k(tested.tmp_root(), "subsys.k", "subsys.checksum");
    k = read_k(tested.handle(), tested.tmp_root());
    clear();
  }

  void clear() {
    tested.log().clear();
    tested.handle()->stat = {};
    mark_status(tested.handle());
  }
  void install_current() { earlier.install_k(knowledge(), "subsys.k", "subsys.checksum"); }
  void install_last() { oldest.install_k(knowledge(), "prev_subsys.k", "prev_subsys.checksum"); }
  void install_corrupted() { earlier.install_k(knowledge(), "corrupted.k", "corrupted.checksum"); }

  // A conf root with a blank: removals below it are refused, and everything else works.
  void move_conf_root_where_nothing_is_removed() {
    set_text(tested.handle()->conf_root, tested.dir() / "a conf");
    set_text(tested.handle()->conf_k_root, tested.dir() / "a conf/knowledge");
    fs::create_directories(knowledge());
  }

  int commit() { return zot_priv_commit_k(tested.handle(), k.get()); }
  int rotate() { return zot_priv_rotate_prev_k(tested.handle(), k.get()); }

  [[nodiscard]] std::string knowledge() const {
    return std::string(tested.handle()->conf_root) + "/knowledge";
  }
  [[nodiscard]] std::string stored(const std::string &name) const {
    return read_bytes(knowledge() + "/" + name);
  }
  [[nodiscard]] bool is_stored(const std::string &name) const {
    return exists(knowledge() + "/" + name);
  }
  // A path as messages spell it.
  [[nodiscard]] std::string by_k_root(const std::string &name) const {
    return std::string(tested.handle()->conf_k_root) + "/" + name;
  }
  [[nodiscard]] std::string by_conf_root(const std::string &name) const {
    return std::string(tested.handle()->conf_root) + "/" + name;
  }
  [[nodiscard]] std::string in_scratch(const std::string &name) const {
    return tested.tmp_root() + "/" + name;
  }

  publication fresh = small_publication("config-fresh");
  publication earlier = small_publication("config-earlier");
  publication oldest = small_publication("config-oldest");
  element tested;
  zot::k_owner k = zot::make_k();
};

std::string copy_line(const std::string &from, const std::string &to) {
  return "3 2 Run CMD: cp \"" + from + "\" \"" + to + "\"\n";
}

std::string size_line(std::size_t bytes) {
  return "3 2 Read byte = " + std::to_string(bytes) + ", write byte = " + std::to_string(bytes) +
         "\n";
}

// All messages of a commit, with the warnings of the two renames in their places.
lines commit_lines(const pending_k &pending, const lines &k_warning,
                   const lines &checksum_warning) {
  const std::string current = pending.by_k_root("/subsys.k");
  const std::string last = pending.by_k_root("/prev_subsys.k");
  const std::string current_checksum = pending.by_conf_root("/knowledge/subsys.checksum");
  const std::string last_checksum = pending.by_conf_root("/knowledge/prev_subsys.checksum");
  lines all = {"2 10 Remove last K: Done\n", "3 10 Run CMD: rm -rf \"" + last + "\"\n"};
  all.insert(all.end(), k_warning.begin(), k_warning.end());
  const lines middle = {
      "2 10 Rotate current K as last K in storage: Done\n",
      "3 10 Run CMD: rename \"" + current + "\" \"" + last + "\"\n",
      copy_line(pending.in_scratch("/subsys.k"), current),
      size_line(pending.fresh.k_text().size()),
      "2 10 Move data from tmp to cached storage: Done\n",
      "2 10 Remove corrupted K: Done\n",
      "3 10 Run CMD: rm -rf \"" + pending.by_conf_root("/knowledge/corrupted.k") + "\"\n",
      "2 10 Remove last K.checksum: Done\n",
      "3 10 Run CMD: rm -rf \"" + last_checksum + "\"\n"};
  all.insert(all.end(), middle.begin(), middle.end());
  all.insert(all.end(), checksum_warning.begin(), checksum_warning.end());
  const lines end = {
      "2 10 Move new K to last K: Done\n",
      "3 10 Run CMD: rename \"" + current_checksum + "\" \"" + last_checksum + "\"\n",
      copy_line(pending.in_scratch("/subsys.checksum"), current_checksum),
      size_line(pending.fresh.checksum_text().size()),
      "2 10 Copy new K to cached storage: Done\n",
      "2 10 Remove corrupted K.checksum: Done\n",
      "3 10 Run CMD: rm -rf \"" + pending.by_conf_root("/knowledge/corrupted.checksum") + "\"\n",
      "2 10 Start to reload cached K.\n",
      "2 9 Commit and rotate K files: Done\n",
      "3 1 Success\n"};
  all.insert(all.end(), end.begin(), end.end());
  return all;
}

TEST(CommitK, MissingHandleIsRefused) {
  pending_k pending;
  EXPECT_EQ(zot_priv_commit_k(nullptr, pending.k.get()), ZOT_ERR_NULL_INPUT);
}

TEST(CommitK, MissingRecordIsRefused) {
  const pending_k pending;
  EXPECT_EQ(zot_priv_commit_k(pending.tested.handle(), nullptr), ZOT_ERR_NULL_INPUT);
}

TEST(CommitK, KWithoutARootIsRefused) {
  pending_k pending;
  pending.install_current();
  zot_priv_k_set_root(pending.k.get(), nullptr);
  EXPECT_EQ(pending.commit(), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(pending.tested.error_text(), "[zot_priv_commit_k]: null root");
}

TEST(CommitK, KWithAnEmptyRootIsRefused) {
  pending_k pending;
  zot_priv_k_set_root(pending.k.get(), "");
  EXPECT_EQ(pending.commit(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(pending.tested.error_text(), "[zot_priv_commit_k]: root path is empty");
}

TEST(CommitK, KWithAnEmptyRootTouchesNoFile) {
  pending_k pending;
  pending.install_current();
  pending.install_last();
  pending.install_corrupted();
  const std::vector<std::string> before = tree(pending.knowledge());
  zot_priv_k_set_root(pending.k.get(), "");
  ASSERT_EQ(pending.commit(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(tree(pending.knowledge()), before);
  EXPECT_EQ(pending.stored("subsys.k"), pending.earlier.k_text());
}

TEST(CommitK, NewKBecomesCurrent) {
  pending_k pending;
  pending.install_current();
  ASSERT_EQ(pending.commit(), ZOT_OK) << pending.tested.error_text();
  EXPECT_EQ(pending.stored("subsys.k"), pending.fresh.k_text());
  EXPECT_EQ(pending.stored("subsys.checksum"), pending.fresh.checksum_text());
}

TEST(CommitK, PreviousKBecomesLast) {
  pending_k pending;
  pending.install_current();
  pending.install_last();
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(pending.stored("prev_subsys.k"), pending.earlier.k_text());
  EXPECT_EQ(pending.stored("prev_subsys.checksum"), pending.earlier.checksum_text());
}

TEST(CommitK, FilesOfTheScratchDirectoryStay) {
  pending_k pending;
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(read_bytes(pending.in_scratch("subsys.k")), pending.fresh.k_text());
  EXPECT_EQ(read_bytes(pending.in_scratch("subsys.checksum")), pending.fresh.checksum_text());
}

TEST(CommitK, RecordHoldsTheKAsReadFromTheCache) {
  pending_k pending;
  pending.k->checksum[0] = '\0';
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(data_of(*pending.k), pending.fresh.k_text());
  EXPECT_STREQ(pending.k->checksum, sha256_hex(pending.fresh.k_text()).c_str());
  EXPECT_STREQ(pending.k->meta.config_id, "config-fresh");
  EXPECT_NE(pending.k->gpbs, nullptr);
}

// A client may replace the text of the record and the file after the record was checked.
TEST(CommitK, TreeOfTheRecordIsThatOfItsText) {
  pending_k pending;
  const publication other = small_publication("config-other");
  other.install_k(pending.tested.tmp_root(), "subsys.k", "subsys.checksum");
  std::free(pending.k->data);
  pending.k->data = ::strdup(other.k_text().c_str());
  pending.k->data_len = static_cast<uint32_t>(other.k_text().size());
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(pending.k->json, "configId")),
               "config-other");
}

TEST(CommitK, RootOfTheRecordIsTheConfRoot) {
  pending_k pending;
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(text_of(pending.k->root), pending.tested.handle()->conf_root);
}

TEST(CommitK, StepsAreLoggedInOrder) {
  pending_k pending;
  pending.install_current();
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(lines_of(pending.tested.log(), "zot_priv_commit_k"), commit_lines(pending, {}, {}));
}

TEST(CommitK, FirstCommitWarnsAboutBothRenamesForInformation) {
  pending_k pending;
  ASSERT_EQ(pending.commit(), ZOT_OK) << pending.tested.error_text();
  const std::string warning =
      std::string("2 10 [Warning] Unable to do mv: ") + std::strerror(ENOENT) + "\n";
  EXPECT_EQ(lines_of(pending.tested.log(), "zot_priv_commit_k"),
            commit_lines(pending, {warning}, {warning}));
}

TEST(CommitK, RenameOfKThatFailsOtherwiseIsAWarning) {
  pending_k pending;
  pending.move_conf_root_where_nothing_is_removed();
  pending.install_current();
  fs::create_directories(pending.knowledge() + "/prev_subsys.k");
  EXPECT_EQ(pending.commit(), ZOT_OK) << pending.tested.error_text();
  const std::string warning =
      std::string("1 10 [Warning] Unable to do mv: ") + std::strerror(EISDIR) + "\n";
  EXPECT_EQ(lines_of(pending.tested.log(), "zot_priv_commit_k"),
            commit_lines(pending, {warning}, {}));
}

TEST(CommitK, RenameOfTheChecksumThatFailsOtherwiseIsAWarning) {
  pending_k pending;
  pending.move_conf_root_where_nothing_is_removed();
  pending.install_current();
  fs::create_directories(pending.knowledge() + "/prev_subsys.checksum");
  EXPECT_EQ(pending.commit(), ZOT_OK) << pending.tested.error_text();
  const std::string warning =
      std::string("1 10 [Warning] Unable to do mv: ") + std::strerror(EISDIR) + "\n";
  EXPECT_EQ(lines_of(pending.tested.log(), "zot_priv_commit_k"),
            commit_lines(pending, {}, {warning}));
}

TEST(CommitK, RemovalThatFailsDoesNotFailTheCommit) {
  pending_k pending;
  pending.move_conf_root_where_nothing_is_removed();
  pending.install_corrupted();
  EXPECT_EQ(pending.commit(), ZOT_OK) << pending.tested.error_text();
  EXPECT_TRUE(pending.is_stored("corrupted.k"));
  EXPECT_EQ(pending.stored("subsys.k"), pending.fresh.k_text());
}

TEST(CommitK, CorruptedFilesAreRemoved) {
  pending_k pending;
  pending.install_corrupted();
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_FALSE(pending.is_stored("corrupted.k"));
  EXPECT_FALSE(pending.is_stored("corrupted.checksum"));
}

TEST(CommitK, CorruptedSlotIsEmptied) {
  pending_k pending;
  zot_ctx *const handle = pending.tested.handle();
  zot_priv_set_k(handle, ZOT_SLOT_CORRUPTED, make_k_of(pending.tested, pending.earlier).release());
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(zot_priv_get_k(handle, ZOT_SLOT_CORRUPTED), nullptr);
}

TEST(CommitK, CommittedKIsOnlyUnlinkedFromTheCorruptedSlot) {
  pending_k pending;
  zot_ctx *const handle = pending.tested.handle();
  zot_priv_set_k(handle, ZOT_SLOT_CORRUPTED, pending.k.get());
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(zot_priv_get_k(handle, ZOT_SLOT_CORRUPTED), nullptr);
  EXPECT_EQ(data_of(*pending.k), pending.fresh.k_text());
}

TEST(CommitK, CopyOfKThatFailsIsReportedByTheCopy) {
  pending_k pending;
  fs::remove(pending.in_scratch("subsys.k"));
  EXPECT_EQ(pending.commit(), ZOT_ERR_GENERIC);
  EXPECT_EQ(pending.tested.error_text(), "fail to cp " + pending.in_scratch("/subsys.k") + " to " +
                                             pending.by_k_root("/subsys.k") + ":" +
                                             std::strerror(ENOENT));
}

TEST(CommitK, PreviousKStaysAsLastWhenTheCopyFails) {
  pending_k pending;
  pending.install_current();
  fs::remove(pending.in_scratch("subsys.k"));
  ASSERT_EQ(pending.commit(), ZOT_ERR_GENERIC);
  EXPECT_FALSE(pending.is_stored("subsys.k"));
  EXPECT_EQ(pending.stored("prev_subsys.k"), pending.earlier.k_text());
}

TEST(CommitK, NothingLaterRunsWhenTheCopyOfKFails) {
  pending_k pending;
  pending.install_current();
  pending.install_corrupted();
  fs::remove(pending.in_scratch("subsys.k"));
  ASSERT_EQ(pending.commit(), ZOT_ERR_GENERIC);
  EXPECT_TRUE(pending.is_stored("corrupted.k"));
  EXPECT_EQ(pending.stored("subsys.checksum"), pending.earlier.checksum_text());
  EXPECT_FALSE(pending.tested.log().contains_part("Move data from tmp"));
}

TEST(CommitK, CopyOfTheChecksumThatFailsIsReportedByTheCopy) {
  pending_k pending;
  fs::remove(pending.in_scratch("subsys.checksum"));
  EXPECT_EQ(pending.commit(), ZOT_ERR_GENERIC);
  EXPECT_EQ(pending.tested.error_text(),
            "fail to cp " + pending.in_scratch("/subsys.checksum") + " to " +
                pending.by_conf_root("/knowledge/subsys.checksum") + ":" + std::strerror(ENOENT));
}

TEST(CommitK, NothingLaterRunsWhenTheCopyOfTheChecksumFails) {
  pending_k pending;
  pending.install_corrupted();
  fs::remove(pending.in_scratch("subsys.checksum"));
  ASSERT_EQ(pending.commit(), ZOT_ERR_GENERIC);
  EXPECT_EQ(pending.stored("subsys.k"), pending.fresh.k_text());
  EXPECT_TRUE(pending.is_stored("corrupted.checksum"));
  EXPECT_FALSE(pending.tested.log().contains_part("Start to reload"));
}

TEST(CommitK, CacheThatDoesNotVerifyAfterwardsFailsTheCommit) {
  pending_k pending;
  write_bytes(pending.in_scratch("subsys.checksum"), sha256_hex("other"));
  EXPECT_EQ(pending.commit(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(pending.tested.error_text(),
            "[zot_priv_verify_k_file]: checksum mismatch expect/real: " + sha256_hex("other") +
                "/" + sha256_hex(pending.fresh.k_text()));
  EXPECT_FALSE(pending.tested.log().contains_part("Commit and rotate K files"));
}

TEST(CommitK, FailedCommitCanBeRepeatedWithTheSameRecord) {
  pending_k pending;
  fs::rename(pending.in_scratch("subsys.checksum"), pending.in_scratch("aside"));
  ASSERT_EQ(pending.commit(), ZOT_ERR_GENERIC);
  fs::rename(pending.in_scratch("aside"), pending.in_scratch("subsys.checksum"));
  EXPECT_EQ(pending.commit(), ZOT_OK) << pending.tested.error_text();
  EXPECT_EQ(pending.stored("subsys.k"), pending.fresh.k_text());
}

TEST(CommitK, BytesOfCopiesAndReloadAreCounted) {
  pending_k pending;
  const std::size_t k_size = pending.fresh.k_text().size();
  const std::size_t copied = k_size + pending.fresh.checksum_text().size();
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(pending.tested.handle()->stat.bytes_written, copied);
  EXPECT_EQ(pending.tested.handle()->stat.bytes_read, copied + 65 + k_size);
}

TEST(CommitK, SuccessIsRecorded) {
  pending_k pending;
  ASSERT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(pending.tested.handle()->err, ZOT_OK);
  EXPECT_EQ(pending.tested.error_text(), "Success");
}

TEST(CommitK, DevModeWritesNothing) {
  temp_dir dir;
  pending_k pending({.dev_path = dir.path()});
  pending.install_current();
  EXPECT_EQ(pending.commit(), ZOT_OK);
  EXPECT_EQ(pending.stored("subsys.k"), pending.earlier.k_text());
  EXPECT_EQ(tree(dir.path()),
            (std::vector<std::string>{"knowledge/subsys.checksum", "knowledge/subsys.k"}));
}

TEST(CommitK, DevModeIsLoggedWithoutAPath) {
  temp_dir dir;
  pending_k pending({.dev_path = dir.path()});
  pending.commit();
  const lines expected = {"2 10 Is dev mode, do not rotate K,  path = (null)\n", "3 1 Success\n"};
  EXPECT_EQ(lines_of(pending.tested.log(), "zot_priv_commit_k"), expected);
}

TEST(RotatePrevK, MissingHandleIsRefused) {
  pending_k pending;
  EXPECT_EQ(zot_priv_rotate_prev_k(nullptr, pending.k.get()), ZOT_ERR_NULL_INPUT);
}

TEST(RotatePrevK, MissingRecordIsNamed) {
  const pending_k pending;
  EXPECT_EQ(zot_priv_rotate_prev_k(pending.tested.handle(), nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(pending.tested.error_text(), "[zot_priv_rotate_prev_k]: Null K file");
}

TEST(RotatePrevK, KWithoutARootIsRefused) {
  pending_k pending;
  zot_priv_k_set_root(pending.k.get(), nullptr);
  EXPECT_EQ(pending.rotate(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(pending.tested.error_text(), "[zot_priv_rotate_prev_k]: empty K path");
}

TEST(RotatePrevK, KWithAnEmptyRootIsRefused) {
  pending_k pending;
  zot_priv_k_set_root(pending.k.get(), "");
  EXPECT_EQ(pending.rotate(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(pending.tested.error_text(), "[zot_priv_rotate_prev_k]: empty K path");
}

TEST(RotatePrevK, TemporaryKBecomesLast) {
  pending_k pending;
  pending.install_last();
  ASSERT_EQ(pending.rotate(), ZOT_OK) << pending.tested.error_text();
  EXPECT_EQ(pending.stored("prev_subsys.k"), pending.fresh.k_text());
  EXPECT_EQ(pending.stored("prev_subsys.checksum"), pending.fresh.checksum_text());
}

TEST(RotatePrevK, CurrentKStays) {
  pending_k pending;
  pending.install_current();
  ASSERT_EQ(pending.rotate(), ZOT_OK);
  EXPECT_EQ(pending.stored("subsys.k"), pending.earlier.k_text());
}

TEST(RotatePrevK, RootOfTheRecordIsTheConfRoot) {
  pending_k pending;
  ASSERT_EQ(pending.rotate(), ZOT_OK);
  EXPECT_EQ(text_of(pending.k->root), pending.tested.handle()->conf_root);
}

TEST(RotatePrevK, StepsAreLoggedInOrder) {
  pending_k pending;
  ASSERT_EQ(pending.rotate(), ZOT_OK);
  const lines expected = {
      copy_line(pending.in_scratch("/subsys.k"), pending.by_k_root("/prev_subsys.k")),
      size_line(pending.fresh.k_text().size()),
      "2 10 Copy new K to cached directory: Done\n",
      copy_line(pending.in_scratch("/subsys.checksum"),
                pending.by_conf_root("/knowledge/prev_subsys.checksum")),
      size_line(pending.fresh.checksum_text().size()),
      "2 10 Copy new K.checksum to cached directory: Done\n",
      "3 9 Rotate last K files: Done\n",
      "3 1 Success\n"};
  EXPECT_EQ(lines_of(pending.tested.log(), "zot_priv_rotate_prev_k"), expected);
}

TEST(RotatePrevK, CopyOfKThatFailsEndsTheRotation) {
  pending_k pending;
  fs::remove(pending.in_scratch("subsys.k"));
  EXPECT_EQ(pending.rotate(), ZOT_ERR_GENERIC);
  EXPECT_EQ(pending.tested.error_text(), "fail to cp " + pending.in_scratch("/subsys.k") + " to " +
                                             pending.by_k_root("/prev_subsys.k") + ":" +
                                             std::strerror(ENOENT));
  EXPECT_FALSE(pending.is_stored("prev_subsys.checksum"));
}

TEST(RotatePrevK, CopyOfTheChecksumThatFailsLeavesTheRoot) {
  pending_k pending;
  fs::remove(pending.in_scratch("subsys.checksum"));
  EXPECT_EQ(pending.rotate(), ZOT_ERR_GENERIC);
  EXPECT_EQ(pending.tested.error_text(),
            "fail to cp " + pending.in_scratch("/subsys.checksum") + " to " +
                pending.by_conf_root("/knowledge/prev_subsys.checksum") + ":" +
                std::strerror(ENOENT));
  EXPECT_EQ(text_of(pending.k->root), pending.tested.tmp_root());
}

TEST(RotatePrevK, BytesOfTheCopiesAreCounted) {
  pending_k pending;
  const std::size_t copied = pending.fresh.k_text().size() + pending.fresh.checksum_text().size();
  ASSERT_EQ(pending.rotate(), ZOT_OK);
  EXPECT_EQ(pending.tested.handle()->stat.bytes_written, copied);
  EXPECT_EQ(pending.tested.handle()->stat.bytes_read, copied);
}

TEST(RotatePrevK, DevModeWritesNothing) {
  temp_dir dir;
  pending_k pending({.dev_path = dir.path()});
  EXPECT_EQ(pending.rotate(), ZOT_OK);
  EXPECT_FALSE(pending.is_stored("prev_subsys.k"));
}

TEST(RotatePrevK, DevModeIsLoggedWithTheConfRoot) {
  temp_dir dir;
  pending_k pending({.dev_path = dir.path()});
  pending.rotate();
  const lines expected = {std::string("2 10 Is dev mode, do not rotate K,  path = ") +
                              pending.tested.handle()->conf_root + "\n",
                          "3 1 Success\n"};
  EXPECT_EQ(lines_of(pending.tested.log(), "zot_priv_rotate_prev_k"), expected);
}

}  // namespace
