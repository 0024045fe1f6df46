// SPDX-License-Identifier: Apache-2.0
// The GPB files of a configuration as one set, and the release of the records.
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/storage/storage_records.hpp"
#include "zot_priv/model/verified_bytes.hpp"

namespace {

using namespace zot::test;
using lines = std::vector<std::string>;

constexpr const char *read_set = "zot_priv_read_gpb";
constexpr const char *update = "zot_priv_update_tmp_gpb";

publication three_files() {
  publication published;
  published.put("Wlan", "a", 1, "first").put("Wlan", "b", 1, "second").put("Wlan", "c", 1, "third");
  return published;
}

// A list with its files below a root.
struct gpb_files {
  explicit gpb_files(publication offered = three_files())
      : published(std::move(offered)), gpbs(zot::make_gpb_list(tested.handle())) {
    published.install_cache(root);
    k = make_k_of(tested, published);
    gpbs = make_list_of(tested.handle(), k.get());
    clear();
  }

  void clear() {
    tested.log().clear();
    mark_status(tested.handle());
  }
  int run() { return zot_priv_read_gpb(tested.handle(), k.get(), gpbs.get(), root.c_str()); }

  publication published;
  element tested;
  std::string root = tested.dir() / "files";
  zot::k_owner k = zot::make_k();
  zot::gpb_list_owner gpbs;
};

TEST(ReadGpbSet, MissingHandleIsRefused) {
  gpb_files files;
  EXPECT_EQ(zot_priv_read_gpb(nullptr, files.k.get(), files.gpbs.get(), files.root.c_str()),
            ZOT_ERR_NULL_INPUT);
}

TEST(ReadGpbSet, MissingListIsNamed) {
  gpb_files files;
  EXPECT_EQ(zot_priv_read_gpb(files.tested.handle(), files.k.get(), nullptr, files.root.c_str()),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(files.tested.error_text(), "[zot_priv_read_gpb]: null gpb input");
}

TEST(ReadGpbSet, KIsNotRead) {
  gpb_files files;
  EXPECT_EQ(zot_priv_read_gpb(files.tested.handle(), nullptr, files.gpbs.get(), files.root.c_str()),
            ZOT_OK);
}

TEST(ReadGpbSet, EveryEntryHoldsItsBytes) {
  gpb_files files;
  ASSERT_EQ(files.run(), ZOT_OK) << files.tested.error_text();
  std::vector<std::string> contents;
  for (const zot_gpb &gpb : zot::gpb_range(files.gpbs.get())) {
    contents.emplace_back(gpb.content, gpb.size);
  }
  EXPECT_EQ(contents, (std::vector<std::string>{"first", "second", "third"}));
}

TEST(ReadGpbSet, StartAndEndAreLogged) {
  gpb_files files;
  ASSERT_EQ(files.run(), ZOT_OK);
  const lines expected = {"3 17 Read from root: " + files.root + "\n",
                          "3 17 Verify all GPB files: Done\n", "3 1 Success\n"};
  EXPECT_EQ(lines_of(files.tested.log(), read_set), expected);
}

TEST(ReadGpbSet, FilesAreVerifiedInListOrder) {
  gpb_files files;
  ASSERT_EQ(files.run(), ZOT_OK);
  const lines expected = {"3 1 Verify GPB file: \"/Wlan/a/1\" : Done\n",
                          "3 1 Verify GPB file: \"/Wlan/b/1\" : Done\n",
                          "3 1 Verify GPB file: \"/Wlan/c/1\" : Done\n"};
  EXPECT_EQ(lines_of(files.tested.log(), "zot_priv_chk_vail_gpb"), expected);
}

TEST(ReadGpbSet, SuccessIsRecorded) {
  gpb_files files;
  ASSERT_EQ(files.run(), ZOT_OK);
  EXPECT_EQ(files.tested.handle()->err, ZOT_OK);
  EXPECT_EQ(files.tested.error_text(), "Success");
}

TEST(ReadGpbSet, EmptyListIsReadAndVerified) {
  gpb_files files;
  files.gpbs = zot::make_gpb_list(files.tested.handle());
  files.clear();
  EXPECT_EQ(files.run(), ZOT_OK);
  EXPECT_TRUE(files.tested.log().contains("Verify all GPB files: Done\n"));
}

TEST(ReadGpbSet, ThirdFileWithAWrongChecksumEmptiesTheList) {
  gpb_files files(three_files().damage("Wlan", "c", "thirD"));
  EXPECT_EQ(files.run(), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(zot_list_is_empty(files.gpbs.get()));
}

TEST(ReadGpbSet, ThirdFileWithAWrongChecksumReleasesAllThreeRecords) {
  gpb_files files(three_files().damage("Wlan", "c", "thirD"));
  ASSERT_EQ(files.run(), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(files.tested.log().contains("free GPB file: /Wlan/a/1\n"));
  EXPECT_TRUE(files.tested.log().contains("free GPB file: /Wlan/b/1\n"));
  EXPECT_TRUE(files.tested.log().contains("free GPB file: /Wlan/c/1\n"));
}

TEST(ReadGpbSet, FailureKeepsTheTextOfTheFileCheck) {
  gpb_files files(three_files().damage("Wlan", "c", "thirD"));
  ASSERT_EQ(files.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(files.tested.handle()->err, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(files.tested.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB checksum: expect chksum = " + sha256_hex("third"));
}

TEST(ReadGpbSet, FirstFailureEndsTheReading) {
  gpb_files files(three_files().damage("Wlan", "a", "firsT"));
  ASSERT_EQ(files.run(), ZOT_ERR_CORRUPTED);
  const lines expected = {"3 1 Verify GPB file: \"/Wlan/a/1\" : Failed\n"};
  EXPECT_EQ(lines_of(files.tested.log(), "zot_priv_chk_vail_gpb"), expected);
}

void state_checksum(zot_list *gpbs, const std::string &checksum) {
  for (zot_gpb &gpb : zot::gpb_range(gpbs)) {
    set_text(gpb.checksum, checksum);
  }
}

// The files of a list are in force, and the same list is loaded again.
struct files_in_force : gpb_files {
  files_in_force() {
    if (run() != ZOT_OK) {
      throw std::runtime_error(tested.error_text());
    }
    zot_priv_set_gpb(tested.handle(), ZOT_SLOT_CURRENT, gpbs.release());
    gpbs = make_list_of(tested.handle(), k.get());
    clear();
  }
  [[nodiscard]] zot_list *in_force() const {
    return zot_priv_get_gpb(tested.handle(), ZOT_SLOT_CURRENT);
  }
};

TEST(ReadGpbSetInForce, UnchangedFilesAreVerified) {
  files_in_force files;
  ASSERT_EQ(files.run(), ZOT_OK) << files.tested.error_text();
  const zot_gpb &first = zot::gpb_of(files.gpbs.get()->next);
  EXPECT_EQ(std::string(first.content, first.size), "first");
}

TEST(ReadGpbSetInForce, UnchangedFilesAreInMemoryOnce) {
  files_in_force files;
  ASSERT_EQ(files.run(), ZOT_OK);
  EXPECT_EQ(zot::gpb_of(files.gpbs.get()->next).verified,
            zot::gpb_of(files.in_force()->next).verified);
}

// No bytes have the checksum that both lists state.
TEST(ReadGpbSetInForce, UnchangedFilesAreNotDigested) {
  files_in_force files;
  state_checksum(files.gpbs.get(), std::string(64, 'f'));
  state_checksum(files.in_force(), std::string(64, 'f'));
  for (const zot_gpb &gpb : zot::gpb_range(files.in_force())) {
    set_text(gpb.verified->checksum, std::string(64, 'f'));
  }
  EXPECT_EQ(files.run(), ZOT_OK) << files.tested.error_text();
}

TEST(ReadGpbSetInForce, OtherChecksumThanThatInForceIsHeldAgainstTheFile) {
  files_in_force files;
  state_checksum(files.gpbs.get(), std::string(64, 'f'));
  EXPECT_EQ(files.run(), ZOT_ERR_CORRUPTED);
}

TEST(ReadGpbSetInForce, FileThatDiffersFromTheOneInForceIsRefused) {
  files_in_force files;
  write_bytes(files.root + "/config/Wlan/b/1", "SECOND");
  EXPECT_EQ(files.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(files.tested.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB checksum: expect chksum = " + sha256_hex("second"));
  EXPECT_TRUE(zot_list_is_empty(files.gpbs.get()));
}

TEST(ReadGpbSetInForce, ListInForceStaysWhenAFileIsRefused) {
  files_in_force files;
  write_bytes(files.root + "/config/Wlan/b/1", "SECOND");
  ASSERT_EQ(files.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(length_of(files.in_force()), 3U);
}

TEST(ReadGpbSetInForce, FileOfANewVersionIsVerifiedByItsChecksum) {
  files_in_force files;
  files.published.put("Wlan", "b", 2, "SECOND").install_cache(files.root);
  files.k = make_k_of(files.tested, files.published);
  files.gpbs = make_list_of(files.tested.handle(), files.k.get());
  ASSERT_EQ(files.run(), ZOT_OK) << files.tested.error_text();
  const zot_gpb &second = zot::gpb_of(files.gpbs.get()->next->next);
  EXPECT_EQ(std::string(second.content, second.size), "SECOND");
}

TEST(ReadGpbSetInForce, ReadBytesCountEveryFile) {
  files_in_force files;
  const uint64_t before = files.tested.handle()->stat.bytes_read;
  ASSERT_EQ(files.run(), ZOT_OK);
  EXPECT_EQ(files.tested.handle()->stat.bytes_read - before, 16U);
}

TEST(ReadGpbSetInForce, EveryFileIsLoggedAsVerified) {
  files_in_force files;
  ASSERT_EQ(files.run(), ZOT_OK);
  const lines expected = {"3 1 Verify GPB file: \"/Wlan/a/1\" : Done\n",
                          "3 1 Verify GPB file: \"/Wlan/b/1\" : Done\n",
                          "3 1 Verify GPB file: \"/Wlan/c/1\" : Done\n"};
  EXPECT_EQ(lines_of(files.tested.log(), "zot_priv_chk_vail_gpb"), expected);
}

// A sub-system that only records what it is asked for.
struct download_note {
  zot_ctx *handle = nullptr;
  zot_k *k = nullptr;
  zot_list *gpbs = nullptr;
  std::size_t length = 0;
  bool was_logged = false;
};
download_note noted;
const log_capture *watched_log = nullptr;
int download_status = ZOT_OK;

int note_download(zot_ctx *handle, zot_k *k, zot_list *gpbs) {
  noted = {handle, k, gpbs, length_of(gpbs),
           watched_log->contains("Update temporary GPB files: Done\n")};
  return download_status;
}

struct set_update {
  explicit set_update(element_options options = {}) : tested(std::move(options)) {
    noted = {};
    download_status = ZOT_OK;
    watched_log = &tested.log();
    tested.handle()->fns.download_gpb = note_download;
    k = make_k_of(tested, published);
    tested.log().clear();
    mark_status(tested.handle());
  }

  int run() { return zot_priv_update_tmp_gpb(tested.handle(), k.get(), gpbs.get()); }

  publication published = three_files();
  element tested;
  zot::k_owner k = zot::make_k();
  zot::gpb_list_owner gpbs = zot::make_gpb_list(tested.handle());
};

TEST(UpdateTmpGpb, MissingHandleIsRefused) {
  const set_update updated;
  EXPECT_EQ(zot_priv_update_tmp_gpb(nullptr, updated.k.get(), updated.gpbs.get()),
            ZOT_ERR_NULL_INPUT);
}

TEST(UpdateTmpGpb, ListThatCannotBeBuiltIsReportedAsItStands) {
  set_update updated;
  updated.k = zot::make_k();
  EXPECT_EQ(updated.run(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(updated.tested.error_text(), "[zot_priv_get_gpb_list_via_k_json]: empty JSON content");
  EXPECT_EQ(noted.handle, nullptr);
}

TEST(UpdateTmpGpb, DownloadOfTheSubSystemGetsKAndTheBuiltList) {
  set_update updated;
  EXPECT_EQ(updated.run(), ZOT_OK);
  EXPECT_EQ(noted.handle, updated.tested.handle());
  EXPECT_EQ(noted.k, updated.k.get());
  EXPECT_EQ(noted.gpbs, updated.gpbs.get());
  EXPECT_EQ(noted.length, 3U);
}

TEST(UpdateTmpGpb, DoneIsLoggedBeforeTheDownload) {
  set_update updated;
  ASSERT_EQ(updated.run(), ZOT_OK);
  EXPECT_TRUE(noted.was_logged);
  EXPECT_EQ(lines_of(updated.tested.log(), update),
            lines{"3 17 Update temporary GPB files: Done\n"});
}

TEST(UpdateTmpGpb, StatusOfTheDownloadIsReturnedUnchanged) {
  for (const int status : {0, -11, 5}) {
    set_update updated;
    download_status = status;
    EXPECT_EQ(updated.run(), status);
  }
}

TEST(UpdateTmpGpb, SubSystemWithoutADownloadIsRefused) {
  set_update updated;
  updated.tested.handle()->fns.download_gpb = nullptr;
  EXPECT_EQ(updated.run(), ZOT_ERR_NULL_INPUT);
}

struct dev_update {
  explicit dev_update(publication offered = three_files()) {
    offered.install_dev(dir.path());
    updated.k = make_k_of(updated.tested, offered);
    updated.tested.log().clear();
  }

  int run() { return updated.run(); }

  temp_dir dir;
  set_update updated{element_options{.dev_path = dir.path()}};
};

TEST(UpdateTmpGpb, DevModeReturnsOneOnSuccess) {
  dev_update dev;
  EXPECT_EQ(dev.run(), 1) << dev.updated.tested.error_text();
  EXPECT_EQ(dev.updated.tested.handle()->err, 1);
}

TEST(UpdateTmpGpb, DevModeReadsTheFilesOfTheDevPath) {
  dev_update dev;
  ASSERT_EQ(dev.run(), 1);
  ASSERT_EQ(length_of(dev.updated.gpbs.get()), 3U);
  const zot_gpb &first = zot::gpb_of(dev.updated.gpbs.get()->next);
  EXPECT_EQ(std::string(first.content, first.size), "first");
}

TEST(UpdateTmpGpb, DevModeDownloadsNothing) {
  dev_update dev;
  ASSERT_EQ(dev.run(), 1);
  EXPECT_EQ(noted.handle, nullptr);
}

TEST(UpdateTmpGpb, DevModeMakesTheDevPathTheRootOfK) {
  dev_update dev;
  ASSERT_EQ(dev.run(), 1);
  EXPECT_EQ(text_of(dev.updated.k->root), dev.updated.tested.handle()->conf_root);
}

TEST(UpdateTmpGpb, DevModeIsLogged) {
  dev_update dev;
  ASSERT_EQ(dev.run(), 1);
  const lines logged = lines_of(dev.updated.tested.log(), update);
  ASSERT_FALSE(logged.empty());
  EXPECT_EQ(logged[0], std::string("3 17 Dev mode: read from ") +
                           dev.updated.tested.handle()->conf_root + ": Done\n");
}

TEST(UpdateTmpGpb, DevModeReportsADamagedFileAsItStands) {
  dev_update dev(three_files().damage("Wlan", "b", "seconD"));
  EXPECT_EQ(dev.run(), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(zot_list_is_empty(dev.updated.gpbs.get()));
}

zot_gpb *make_entry(const char *path) {
  zot_gpb *const gpb = zot_priv_gpb_new(path, 3, ZOT_CAT_WLAN, "", "key", 1);
  gpb->content = ::strdup("abc");
  return gpb;
}

TEST(GpbRelease, MissingArgumentIsRefusedWithoutRecording) {
  const element tested;
  mark_status(tested.handle());
  zot_gpb gpb{};
  EXPECT_EQ(zot_priv_free_gpb(nullptr, &gpb), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_free_gpb(tested.handle(), nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(has_marked_status(tested.handle()));
}

TEST(GpbRelease, RecordIsNamedInTheLogWithPathAndAddress) {
  element tested;
  tested.log().clear();
  zot_gpb *const gpb = make_entry("/Wlan/a/1");
  char address[64];
  static_cast<void>(std::snprintf(address, sizeof address, "%p", zot::address(gpb)));
  EXPECT_EQ(zot_priv_free_gpb(tested.handle(), gpb), ZOT_OK);
  const lines expected = {"3 128 free GPB file: /Wlan/a/1\n",
                          std::string("3 128 free GPB: ") + address + ": Done\n"};
  EXPECT_EQ(lines_of(tested.log(), "zot_priv_free_gpb"), expected);
}

TEST(GpbRelease, StatusIsLeftAlone) {
  const element tested;
  mark_status(tested.handle());
  zot_priv_free_gpb(tested.handle(), make_entry("/Wlan/a/1"));
  EXPECT_TRUE(has_marked_status(tested.handle()));
}

TEST(GpbRelease, DataOfARecordWithSizeZeroIsLeftAlone) {
  const element tested;
  zot_gpb *const gpb = make_entry("/Wlan/a/1");
  char *const content = gpb->content;
  gpb->size = 0;
  EXPECT_EQ(zot_priv_free_gpb(tested.handle(), gpb), ZOT_OK);
  EXPECT_STREQ(content, "abc");
  std::free(content);
}

TEST(GpbListRelease, MissingArgumentIsRefusedWithoutRecording) {
  const element tested;
  mark_status(tested.handle());
  zot_list head;
  zot_list_init(&head);
  EXPECT_EQ(zot_priv_free_gpb_list(nullptr, &head), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_free_gpb_list(tested.handle(), nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(has_marked_status(tested.handle()));
}

TEST(GpbListRelease, EmptyListWritesNoLogLine) {
  element tested;
  tested.log().clear();
  zot_list head;
  zot_list_init(&head);
  EXPECT_EQ(zot_priv_free_gpb_list(tested.handle(), &head), ZOT_OK);
  EXPECT_TRUE(tested.log().lines().empty()) << tested.log().dump();
}

TEST(GpbListRelease, HeadIsAnEmptyListAfterwards) {
  const element tested;
  zot_list head;
  zot_list_init(&head);
  list_add_tail(&head, &make_entry("/Wlan/a/1")->node);
  list_add_tail(&head, &make_entry("/Wlan/b/1")->node);
  EXPECT_EQ(zot_priv_free_gpb_list(tested.handle(), &head), ZOT_OK);
  EXPECT_TRUE(zot_list_is_empty(&head));
}

TEST(GpbListRelease, ListIsNamedInTheLogAfterItsRecords) {
  element tested;
  zot_list head;
  zot_list_init(&head);
  list_add_tail(&head, &make_entry("/Wlan/a/1")->node);
  tested.log().clear();
  char address[64];
  static_cast<void>(std::snprintf(address, sizeof address, "%p", zot::address(&head)));
  zot_priv_free_gpb_list(tested.handle(), &head);
  ASSERT_EQ(tested.log().lines().size(), 3U) << tested.log().dump();
  EXPECT_EQ(lines_of(tested.log(), "zot_priv_free_gpb_list"),
            lines{std::string("3 64 free GPB list ") + address + ": Done\n"});
  EXPECT_EQ(tested.log().lines().back().func, "zot_priv_free_gpb_list");
}

struct marked_list {
  void add(const char *path, uint32_t stat) {
    zot_gpb *const gpb = make_entry(path);
    gpb->stat = stat;
    list_add_tail(gpbs.get(), &gpb->node);
  }
  [[nodiscard]] std::vector<std::string> paths() const {
    std::vector<std::string> all;
    for (const zot_gpb &gpb : zot::gpb_range(gpbs.get())) {
      all.emplace_back(gpb.path);
    }
    return all;
  }

  element tested;
  zot::gpb_list_owner gpbs = zot::make_gpb_list(tested.handle());
};

TEST(GpbPrune, DeletedEntriesAreDropped) {
  marked_list marked;
  marked.add("/Wlan/a/1", ZOT_STAT_DELETED);
  marked.add("/Wlan/b/1", ZOT_STAT_ADDED);
  marked.add("/Wlan/c/1", ZOT_STAT_DELETED);
  zot_priv_prune_deleted_gpb(marked.tested.handle(), marked.gpbs.get());
  EXPECT_EQ(marked.paths(), std::vector<std::string>{"/Wlan/b/1"});
}

TEST(GpbPrune, OtherEntriesBecomeUnchanged) {
  marked_list marked;
  for (const uint32_t stat : {ZOT_STAT_UNCHANGED, ZOT_STAT_ADDED, ZOT_STAT_MODIFIED}) {
    marked.add("/Wlan/a/1", stat);
  }
  zot_priv_prune_deleted_gpb(marked.tested.handle(), marked.gpbs.get());
  ASSERT_EQ(length_of(marked.gpbs.get()), 3U);
  for (const zot_gpb &gpb : zot::gpb_range(marked.gpbs.get())) {
    EXPECT_EQ(gpb.stat, 2U);
  }
}

TEST(GpbPrune, NothingIsLoggedForAListWithoutDeletedEntries) {
  marked_list marked;
  marked.add("/Wlan/a/1", ZOT_STAT_ADDED);
  marked.tested.log().clear();
  zot_priv_prune_deleted_gpb(marked.tested.handle(), marked.gpbs.get());
  EXPECT_TRUE(marked.tested.log().lines().empty()) << marked.tested.log().dump();
}

TEST(GpbPrune, ListOfDeletedEntriesOnlyBecomesEmpty) {
  marked_list marked;
  marked.add("/Wlan/a/1", ZOT_STAT_DELETED);
  marked.add("/Wlan/b/1", ZOT_STAT_DELETED);
  zot_priv_prune_deleted_gpb(marked.tested.handle(), marked.gpbs.get());
  EXPECT_TRUE(zot_list_is_empty(marked.gpbs.get()));
}

}  // namespace
