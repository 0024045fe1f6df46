// SPDX-License-Identifier: Apache-2.0
// Files that are verified beside bytes that were verified before.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"
#include "zot_priv/model/verified.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;
using zot::test::sha256_hex;

const std::string bytes = "the bytes of a file";
const std::string other_bytes = "THE BYTES OF A FILE";

void state_checksum(zot_gpb &gpb, const std::string &checksum) {
  std::memcpy(gpb.checksum, checksum.c_str(), sizeof gpb.checksum);
}

// An entry, its file below a root directory, and bytes that are known.
struct known_file {
  explicit known_file(const std::string &stored = bytes) { zot::test::write_bytes(file, stored); }

  int load_beside(const char *bytes_at_hand) {
    zot::gpb_folder folder(root.c_str());
    return zot::load_content(handle.get(), &gpb, folder, bytes_at_hand);
  }
  int load() { return load_beside(known.c_str()); }
  int load_unknown() { return load_beside(nullptr); }
  // No bytes have this checksum: who passes was not digested.
  void state_wrong_checksum() { state_checksum(gpb, sha256_hex("something else")); }
  std::string loaded() { return {gpb.content, gpb.size}; }

  model_handle handle;
  zot::test::temp_dir dir;
  std::string root = dir / "root";
  std::string file = root + "/config/Wlan/a/1";
  std::string known = bytes;
  zot::gpb_list_owner gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1, 0, bytes}});
  zot_gpb &gpb = entry_at(gpbs.get(), 0);
};

TEST(LoadContent, FileThatHoldsTheKnownBytesIsNotDigested) {
  known_file test;
  test.state_wrong_checksum();
  EXPECT_EQ(test.load(), ZOT_OK);
  EXPECT_EQ(test.loaded(), bytes);
}

TEST(LoadContent, WithoutKnownBytesTheChecksumDecides) {
  known_file test;
  EXPECT_EQ(test.load_unknown(), ZOT_OK);
  EXPECT_EQ(test.loaded(), bytes);
}

TEST(LoadContent, WithoutKnownBytesAWrongChecksumIsCorrupted) {
  known_file test;
  test.state_wrong_checksum();
  EXPECT_EQ(test.load_unknown(), ZOT_ERR_CORRUPTED);
}

TEST(LoadContent, RightFilePassesThoughOtherBytesAreKnown) {
  known_file test;
  test.known = other_bytes;
  EXPECT_EQ(test.load(), ZOT_OK);
  EXPECT_EQ(test.loaded(), bytes);
}

TEST(LoadContent, WrongFileIsCorruptedWhateverIsKnown) {
  known_file test(other_bytes);
  EXPECT_EQ(test.load(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB checksum: expect chksum = " + sha256_hex(bytes));
}

TEST(LoadContent, FileThatDiffersInItsLastByteIsCorrupted) {
  std::string changed = bytes;
  changed.back() = '!';
  known_file test(changed);
  EXPECT_EQ(test.load(), ZOT_ERR_CORRUPTED);
}

TEST(LoadContent, WrongFileLeavesABlankBuffer) {
  known_file test(other_bytes);
  test.load();
  ASSERT_NE(test.gpb.content, nullptr);
  EXPECT_EQ(test.loaded(), std::string(bytes.size(), '\0'));
}

TEST(LoadContent, FileThatIsLongerThanTheKnownBytesIsOfTheWrongSize) {
  known_file test(bytes + "!");
  EXPECT_EQ(test.load(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=19/20");
}

TEST(LoadContent, FileThatIsShorterThanTheKnownBytesIsOfTheWrongSize) {
  known_file test(bytes.substr(0, 18));
  EXPECT_EQ(test.load(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=19/18");
}

TEST(LoadContent, AbsentFileIsCorruptedThoughItsBytesAreKnown) {
  known_file test;
  std::filesystem::remove(test.file);
  EXPECT_EQ(test.load(), ZOT_ERR_CORRUPTED);
}

TEST(LoadContent, MissingChecksumIsRefusedThoughTheBytesAreKnown) {
  known_file test;
  test.gpb.checksum[0] = '\0';
  EXPECT_EQ(test.load(), ZOT_ERR_NULL_INPUT);
}

TEST(LoadContent, KnownBytesMayBeThoseOfTheEntry) {
  known_file test;
  ASSERT_EQ(test.load_unknown(), ZOT_OK);
  const char *const buffer = test.gpb.content;
  EXPECT_EQ(test.load_beside(buffer), ZOT_OK);
  EXPECT_EQ(test.gpb.content, buffer);
  EXPECT_EQ(test.loaded(), bytes);
}

TEST(LoadContent, FileThatChangedIsCorruptedBesideTheBytesOfTheEntry) {
  known_file test;
  ASSERT_EQ(test.load_unknown(), ZOT_OK);
  zot::test::write_bytes(test.file, other_bytes);
  EXPECT_EQ(test.load_beside(test.gpb.content), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.loaded(), bytes);
}

TEST(LoadContent, BytesReadAreCountedWhateverIsKnown) {
  known_file test;
  ASSERT_EQ(test.load(), ZOT_OK);
  EXPECT_EQ(test.handle.get()->stat.bytes_read, 19U);
}

TEST(LoadContent, KnownFileIsLoggedAsAnyOther) {
  known_file test;
  ASSERT_EQ(test.load(), ZOT_OK);
  EXPECT_EQ(logged_by(test.handle.log(), "zot_priv_verify_gpb"),
            (lines{"3 17 Read GPB into memory: Done\n",
                   "3 17 Verify file : size = 19, checksum = " + sha256_hex(bytes) + " : Done\n"}));
  EXPECT_EQ(logged_by(test.handle.log(), "zot_priv_chk_vail_gpb"),
            lines{"3 1 Verify GPB file: \"/Wlan/a/1\" : Done\n"});
}

TEST(LoadContent, PassClearsTheCodeAlone) {
  known_file test;
  mark_status(test.handle.get());
  EXPECT_EQ(test.load(), ZOT_OK);
  EXPECT_EQ(test.handle.get()->err, ZOT_OK);
  EXPECT_EQ(test.handle.error_text(), "an earlier text");
}

TEST(LoadContent, SizeZeroIsRefusedWithoutABuffer) {
  known_file test;
  test.gpb.size = 0;
  EXPECT_EQ(test.load(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.gpb.content, nullptr);
}

TEST(LoadContent, OneFolderServesManyEntries) {
  known_file test;
  zot::test::write_bytes(test.root + "/config/Zone/z/2", "zone z");
  const auto more = list_of(test.handle.get(), {{ZOT_CAT_ZONE, "z", 2, 0, "zone z"}});
  zot::gpb_folder folder(test.root.c_str());
  EXPECT_EQ(zot::load_content(test.handle.get(), &test.gpb, folder, nullptr), ZOT_OK);
  EXPECT_EQ(zot::load_content(test.handle.get(), &entry_at(more.get(), 0), folder, nullptr),
            ZOT_OK);
}

TEST(LoadContent, MissingFolderIsAnEmptyFileOfTheWholeName) {
  known_file test;
  std::filesystem::remove_all(test.root);
  EXPECT_EQ(test.load(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]:Empty content in " + test.root + "//config//Wlan/a/1");
}

// The name of a file is the root, "//config/" and the path, in 4,096 bytes with the terminator.
TEST(GpbFolder, HasRoomForNamesUpToTheirLimit) {
  zot::gpb_folder folder("/root");
  EXPECT_TRUE(folder.has_room_for(std::string(4095 - 5 - 9, 'p').c_str()));
  EXPECT_FALSE(folder.has_room_for(std::string(4096 - 5 - 9, 'p').c_str()));
}

TEST(GpbFolder, OpensAPathWhateverSlashesItBeginsWith) {
  const known_file test;
  zot::gpb_folder folder(test.root.c_str());
  for (const char *const path : {"Wlan/a/1", "/Wlan/a/1", "//Wlan/a/1"}) {
    EXPECT_TRUE(folder.open(path).is_open()) << path;
  }
}

TEST(GpbFolder, OpensNothingThatIsAbsent) {
  const known_file test;
  zot::gpb_folder folder(test.root.c_str());
  for (const char *const path : {"/Wlan/a/2", "/", "", "/config/Wlan/a/1"}) {
    EXPECT_FALSE(folder.open(path).is_open()) << path;
  }
}

TEST(GpbFolder, OfAnAbsentRootOpensNothing) {
  const known_file test;
  const std::string absent = test.dir / "absent";
  EXPECT_FALSE(zot::gpb_folder(absent.c_str()).open("/Wlan/a/1").is_open());
}

TEST(VerifiedContent, OfAnEntryWithoutBytesIsNone) {
  known_file test;
  EXPECT_EQ(zot::verified_content(test.gpb), nullptr);
}

TEST(VerifiedContent, OfALoadedEntryIsItsBuffer) {
  known_file test;
  ASSERT_EQ(test.load_unknown(), ZOT_OK);
  EXPECT_EQ(zot::verified_content(test.gpb), test.gpb.content);
}

TEST(VerifiedContent, OfAnEntryThatFailedIsNone) {
  known_file test(other_bytes);
  ASSERT_EQ(test.load_unknown(), ZOT_ERR_CORRUPTED);
  ASSERT_NE(test.gpb.content, nullptr);
  EXPECT_EQ(zot::verified_content(test.gpb), nullptr);
}

// A list in the order of all lists, the entries loaded with the bytes that they state.
struct loaded_list {
  explicit loaded_list(const std::vector<entry> &entries = {{ZOT_CAT_AP, "a", 1, 0, "ap a"},
                                                            {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"},
                                                            {ZOT_CAT_WLAN, "b", 7, 0, "wlan b"},
                                                            {ZOT_CAT_ZONE, "z", 1, 0, "zone z"}})
      : gpbs(list_of(handle.get(), entries)) {
    for (const entry &from : entries) {
      zot_gpb &gpb = entry_at(gpbs.get(), loaded++);
      gpb.content = static_cast<char *>(std::malloc(from.bytes.size()));
      std::memcpy(gpb.content, from.bytes.data(), from.bytes.size());
    }
  }

  // The place of the entry whose bytes are those asked for; -1 without any.
  int find(zot::verified_files &files, const entry &wanted) {
    zot_gpb *const gpb = new_gpb(wanted);
    const char *const found = files.bytes_of(*gpb);
    zot_priv_free_gpb(handle.get(), gpb);
    for (size_t place = 0; place < loaded; ++place) {
      if (found != nullptr && entry_at(gpbs.get(), place).content == found) {
        return static_cast<int>(place);
      }
    }
    return found == nullptr ? -1 : -2;
  }
  int find(const entry &wanted) {
    zot::verified_files files(gpbs.get());
    return find(files, wanted);
  }

  model_handle handle;
  zot::gpb_list_owner gpbs;
  size_t loaded = 0;
};

TEST(VerifiedFiles, EveryEntryIsFoundInTheOrderOfTheList) {
  loaded_list list;
  zot::verified_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_AP, "a", 1, 0, "ap a"}), 0);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), 1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "b", 7, 0, "wlan b"}), 2);
  EXPECT_EQ(list.find(files, {ZOT_CAT_ZONE, "z", 1, 0, "zone z"}), 3);
}

TEST(VerifiedFiles, EntriesInBetweenThatTheListLacksHinderNoLaterOne) {
  loaded_list list;
  zot::verified_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_ACCESS_LIST, "x", 1, 0, "none"}), -1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), 1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "aa", 1, 0, "none"}), -1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "b", 6, 0, "none"}), -1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "b", 7, 0, "wlan b"}), 2);
}

TEST(VerifiedFiles, OneEntryMayBeAskedForTwice) {
  loaded_list list;
  zot::verified_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), 1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), 1);
}

TEST(VerifiedFiles, AskingBackwardsFindsNothing) {
  loaded_list list;
  zot::verified_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "b", 7, 0, "wlan b"}), 2);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(VerifiedFiles, NothingIsFoundBeyondTheEnd) {
  loaded_list list;
  zot::verified_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_ORB_CERT, "o", 1, 0, "none"}), -1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_ORB_CERT, "p", 1, 0, "none"}), -1);
}

TEST(VerifiedFiles, EntryOfAnotherSizeIsNotFound) {
  loaded_list list;
  entry_at(list.gpbs.get(), 1).size = 5;
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(VerifiedFiles, EntryOfAnotherChecksumIsNotFound) {
  loaded_list list;
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "WLAN A"}), -1);
}

TEST(VerifiedFiles, EntryWithoutBytesIsNotFound) {
  loaded_list list;
  zot_gpb &gpb = entry_at(list.gpbs.get(), 1);
  std::free(gpb.content);
  gpb.content = nullptr;
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(VerifiedFiles, EntryThatFailedIsNotFound) {
  loaded_list list;
  zot_gpb &gpb = entry_at(list.gpbs.get(), 1);
  std::memset(gpb.content, 0, gpb.size);
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(VerifiedFiles, EmptyListHoldsNothing) {
  loaded_list list(std::vector<entry>{});
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(VerifiedFiles, NoListHoldsNothing) {
  loaded_list list;
  zot::verified_files files(nullptr);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

}  // namespace
