// SPDX-License-Identifier: Apache-2.0
// Files that are verified when verified bytes already exist.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"
#include "zot_priv/storage/gpb_verify.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;
using zot::test::sha256_hex;

const std::string bytes = "the bytes of a file";
const std::string other_bytes = "THE BYTES OF A FILE";

// An entry, its file below a root directory, and bytes that are known.
struct known_file {
  explicit known_file(const std::string &stored = bytes) { zot::test::write_bytes(file, stored); }

  int load_beside(zot_verified *at_hand) {
    zot::gpb_folder folder(root.c_str());
    return zot::load_content(handle.get(), &gpb, folder, at_hand);
  }
  int load() { return load_beside(known.get()); }
  int load_unknown() { return load_beside(nullptr); }
  // No bytes have this checksum, so a file that passes was not digested.
  void state_wrong_checksum() { state_checksum(gpb, sha256_hex("something else")); }
  std::string loaded() { return {gpb.content, gpb.size}; }

  model_handle handle;
  zot::test::temp_dir dir;
  std::string root = dir / "root";
  std::string file = root + "/config/Wlan/a/1";
  zot::verified_bytes known = verified_as(bytes, sha256_hex(bytes));
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
  test.known = verified_as(other_bytes, sha256_hex(bytes));
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

TEST(LoadContent, FileThatHoldsTheKnownBytesSharesThem) {
  known_file test;
  ASSERT_EQ(test.load(), ZOT_OK);
  EXPECT_EQ(test.gpb.verified, test.known.get());
  EXPECT_EQ(test.gpb.content, zot::bytes_of(test.known.get()));
  EXPECT_EQ(test.known->owners, 2U);
}

TEST(LoadContent, DigestedFileHasBytesOfItsOwn) {
  known_file test;
  ASSERT_EQ(test.load_unknown(), ZOT_OK);
  ASSERT_NE(test.gpb.verified, nullptr);
  EXPECT_EQ(test.gpb.verified->owners, 1U);
  EXPECT_EQ(test.gpb.verified->size, bytes.size());
  EXPECT_STREQ(test.gpb.verified->checksum, sha256_hex(bytes).c_str());
}

TEST(LoadContent, WrongFileLeavesNothing) {
  known_file test(other_bytes);
  test.load();
  EXPECT_EQ(test.gpb.content, nullptr);
  EXPECT_EQ(test.gpb.verified, nullptr);
}

// Verified bytes replace any buffer that somebody put there.
TEST(LoadContent, BufferOfSomebodyElseIsReplaced) {
  known_file test;
  test.gpb.content = ::strdup(other_bytes.c_str());
  EXPECT_EQ(test.load_unknown(), ZOT_OK);
  EXPECT_EQ(test.loaded(), bytes);
  EXPECT_EQ(zot::verified_of(test.gpb), test.gpb.verified);
}

TEST(LoadContent, BufferOfSomebodyElseStaysWhenTheFileIsWrong) {
  known_file test(other_bytes);
  test.gpb.content = ::strdup("what somebody put there");
  EXPECT_EQ(test.load_unknown(), ZOT_ERR_CORRUPTED);
  EXPECT_STREQ(test.gpb.content, "what somebody put there");
  EXPECT_EQ(zot::verified_of(test.gpb), nullptr);
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
  EXPECT_EQ(test.load_beside(test.gpb.verified), ZOT_OK);
  EXPECT_EQ(test.gpb.content, buffer);
  EXPECT_EQ(test.gpb.verified->owners, 1U);
  EXPECT_EQ(test.loaded(), bytes);
}

TEST(LoadContent, FileThatChangedIsCorruptedBesideTheBytesOfTheEntry) {
  known_file test;
  ASSERT_EQ(test.load_unknown(), ZOT_OK);
  zot::test::write_bytes(test.file, other_bytes);
  EXPECT_EQ(test.load_beside(test.gpb.verified), ZOT_ERR_CORRUPTED);
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

}  // namespace
