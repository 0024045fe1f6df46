// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;
using zot::test::sha256_hex;

const std::string bytes = "the bytes of a file";

int32_t size_of(const std::string &text) {
  return static_cast<int32_t>(text.size());
}

// One file on disk, verified by its name.
struct named_file {
  explicit named_file(const std::string &stored = bytes) { zot::test::write_bytes(file, stored); }
  int verify(int32_t size, const std::string &checksum, void *out = nullptr) {
    return zot_priv_verify_gpb(handle.get(), file.c_str(), size, checksum.c_str(), out);
  }
  int verify() { return verify(size_of(bytes), sha256_hex(bytes)); }
  lines logged() { return logged_by(handle.log(), "zot_priv_verify_gpb"); }
  uint64_t bytes_read() { return handle.get()->stat.bytes_read; }

  model_handle handle;
  zot::test::temp_dir dir;
  std::string file = dir / "file";
};

TEST(VerifyGpb, MissingOrEmptyNameIsRefused) {
  named_file test;
  const std::string checksum = sha256_hex(bytes);
  for (const char *const name : {static_cast<const char *>(nullptr), ""}) {
    test.handle.get()->err = ZOT_OK;
    EXPECT_EQ(zot_priv_verify_gpb(test.handle.get(), name, 1, checksum.c_str(), nullptr),
              ZOT_ERR_NULL_INPUT);
    EXPECT_EQ(test.handle.get()->err, ZOT_ERR_NULL_INPUT);
    EXPECT_EQ(test.handle.error_text(), "[zot_priv_verify_gpb]: null input");
  }
}

TEST(VerifyGpb, MissingOrEmptyChecksumIsRefused) {
  named_file test;
  for (const char *const checksum : {static_cast<const char *>(nullptr), ""}) {
    test.handle.get()->err = ZOT_OK;
    EXPECT_EQ(zot_priv_verify_gpb(test.handle.get(), test.file.c_str(), 1, checksum, nullptr),
              ZOT_ERR_NULL_INPUT);
    EXPECT_EQ(test.handle.get()->err, ZOT_ERR_NULL_INPUT);
    EXPECT_EQ(test.handle.error_text(), "[zot_priv_verify_gpb]: null input");
  }
  EXPECT_EQ(test.bytes_read(), 0U);
}

TEST(VerifyGpb, MissingHandleIsRefused) {
  named_file test;
  EXPECT_EQ(zot_priv_verify_gpb(nullptr, test.file.c_str(), size_of(bytes),
                                sha256_hex(bytes).c_str(), nullptr),
            ZOT_ERR_NULL_INPUT);
}

TEST(VerifyGpb, RightFilePasses) {
  named_file test;
  EXPECT_EQ(test.verify(), ZOT_OK);
}

TEST(VerifyGpb, AbsentFileIsCorrupted) {
  named_file test;
  std::filesystem::remove(test.file);
  EXPECT_EQ(test.verify(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_verify_gpb]:Empty content in " + test.file);
}

TEST(VerifyGpb, EmptyFileIsCorrupted) {
  named_file test("");
  EXPECT_EQ(test.verify(0, sha256_hex("")), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_verify_gpb]:Empty content in " + test.file);
}

TEST(VerifyGpb, FifoIsCorruptedWithoutWaitingForAWriter) {
  named_file test;
  std::filesystem::remove(test.file);
  ASSERT_EQ(::mkfifo(test.file.c_str(), 0600), 0);
  EXPECT_EQ(test.verify(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_verify_gpb]:Empty content in " + test.file);
}

TEST(VerifyGpb, FileFarLargerThanStatedIsNotRead) {
  named_file test;
  std::filesystem::resize_file(test.file, 2000000000);
  EXPECT_EQ(test.verify(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=19/2000000000");
  EXPECT_EQ(test.bytes_read(), 0U);
}

TEST(VerifyGpb, DirectoryIsCorrupted) {
  named_file test;
  EXPECT_EQ(zot_priv_verify_gpb(test.handle.get(), test.dir.path().c_str(), 1,
                                sha256_hex(bytes).c_str(), nullptr),
            ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_verify_gpb]:Empty content in " + test.dir.path());
}

TEST(VerifyGpb, FileOneByteShortIsReportedWithBothSizes) {
  named_file test(bytes.substr(1));
  EXPECT_EQ(test.verify(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=19/18");
}

TEST(VerifyGpb, FileOneByteLongIsReportedWithBothSizes) {
  named_file test(bytes + "!");
  EXPECT_EQ(test.verify(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=19/20");
}

TEST(VerifyGpb, SizeIsReportedEvenWhenTheChecksumFits) {
  named_file test;
  EXPECT_EQ(test.verify(18, sha256_hex(bytes)), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=18/19");
}

TEST(VerifyGpb, NegativeSizeNeverFits) {
  named_file test;
  EXPECT_EQ(test.verify(-1, sha256_hex(bytes)), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=-1/19");
}

TEST(VerifyGpb, ChangedByteIsReportedWithTheExpectedChecksum) {
  std::string changed = bytes;
  changed[5] = 'B';
  named_file test(changed);
  EXPECT_EQ(test.verify(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB checksum: expect chksum = " + sha256_hex(bytes));
}

TEST(VerifyGpb, UpperCaseChecksumNeverFits) {
  named_file test;
  std::string checksum = sha256_hex(bytes);
  std::ranges::transform(checksum, checksum.begin(),
                         [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  EXPECT_EQ(test.verify(size_of(bytes), checksum), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB checksum: expect chksum = " + checksum);
}

TEST(VerifyGpb, FileThatBeginsWithAZeroByteNeverFits) {
  const std::string stored("\0bytes", 6);
  named_file test(stored);
  EXPECT_EQ(test.verify(size_of(stored), sha256_hex(stored)), ZOT_ERR_CORRUPTED);
}

TEST(VerifyGpb, ZeroBytesInsideAreHashed) {
  const std::string stored("by\0tes", 6);
  named_file test(stored);
  EXPECT_EQ(test.verify(size_of(stored), sha256_hex(stored)), ZOT_OK);
}

TEST(VerifyGpb, BytesReadAreCounted) {
  named_file test;
  test.handle.get()->stat.bytes_read = 100;
  test.verify();
  EXPECT_EQ(test.bytes_read(), 119U);
}

TEST(VerifyGpb, CounterGoesOnBeyondFourGibibytes) {
  named_file test;
  test.handle.get()->stat.bytes_read = UINT32_MAX;
  test.verify();
  EXPECT_EQ(test.bytes_read(), 4294967314U);
}

// 4 GiB and a few bytes: truncated to 32 bits, that is the size that K states.
TEST(VerifyGpb, SizeThatWrapsToTheExpectedOneIsCorrupted) {
  named_file test;
  std::filesystem::resize_file(test.file, (uintmax_t{1} << 32) + bytes.size());
  EXPECT_EQ(test.verify(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_verify_gpb]:Empty content in " + test.file);
}

TEST(VerifyGpb, BytesOfARefusedFileAreCounted) {
  named_file test;
  test.verify(18, sha256_hex(bytes));
  EXPECT_EQ(test.bytes_read(), 19U);
}

TEST(VerifyGpb, AbsentFileCountsNothing) {
  named_file test;
  std::filesystem::remove(test.file);
  test.verify();
  EXPECT_EQ(test.bytes_read(), 0U);
}

TEST(VerifyGpb, OutputReceivesTheBytes) {
  named_file test;
  std::array<char, 32> out{};
  EXPECT_EQ(test.verify(size_of(bytes), sha256_hex(bytes), out.data()), ZOT_OK);
  EXPECT_EQ(std::string(out.data()), bytes);
}

TEST(VerifyGpb, OutputIsLeftAloneByARefusedFile) {
  named_file test;
  std::array<char, 32> out{"before"};
  test.verify(size_of(bytes), sha256_hex("other"), out.data());
  EXPECT_STREQ(out.data(), "before");
}

TEST(VerifyGpb, PassIsLogged) {
  named_file test;
  test.verify();
  EXPECT_EQ(test.logged(),
            lines{"3 17 Verify file : size = 19, checksum = " + sha256_hex(bytes) + " : Done\n"});
}

TEST(VerifyGpb, PassIntoABufferIsLogged) {
  named_file test;
  std::array<char, 32> out{};
  test.verify(size_of(bytes), sha256_hex(bytes), out.data());
  EXPECT_EQ(test.logged(),
            (lines{"3 17 Read GPB into memory: Done\n",
                   "3 17 Verify file : size = 19, checksum = " + sha256_hex(bytes) + " : Done\n"}));
}

TEST(VerifyGpb, WrongSizeIsLoggedWithTheFile) {
  named_file test;
  test.verify(18, sha256_hex(bytes));
  EXPECT_EQ(test.logged(),
            (lines{"0 1 [zot_priv_verify_gpb]: wrong GPB size: expect/real size=18/19\n",
                   "3 17 file = " + test.file + "\n"}));
}

TEST(VerifyGpb, WrongChecksumIsLoggedWithTheFile) {
  named_file test;
  test.verify(19, sha256_hex("other"));
  EXPECT_EQ(test.logged(),
            (lines{"0 1 [zot_priv_verify_gpb]: wrong GPB checksum: expect chksum = " +
                       sha256_hex("other") + "\n",
                   "3 17 file = " + test.file + "\n"}));
}

TEST(VerifyGpb, PassClearsTheCodeAlone) {
  named_file test;
  mark_status(test.handle.get());
  EXPECT_EQ(test.verify(), ZOT_OK);
  EXPECT_EQ(test.handle.get()->err, ZOT_OK);
  EXPECT_EQ(test.handle.error_text(), "an earlier text");
}

// An entry and its file below a root directory.
struct listed_file {
  explicit listed_file(const std::string &stated = bytes)
      : gpbs(list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1, 0, stated}})),
        gpb(entry_at(gpbs.get(), 0)) {
    zot::test::write_bytes(file, bytes);
  }
  int check() { return zot_priv_chk_vail_gpb(handle.get(), &gpb, root.c_str()); }
  int build() { return zot_priv_build_gpb_cont(handle.get(), &gpb, root.c_str()); }
  lines logged() { return logged_by(handle.log(), "zot_priv_chk_vail_gpb"); }

  model_handle handle;
  zot::test::temp_dir dir;
  std::string root = dir / "root";
  std::string file = root + "/config/Wlan/a/1";
  zot::gpb_list_owner gpbs;
  zot_gpb &gpb;
};

TEST(CheckGpb, RightFilePasses) {
  listed_file test;
  mark_status(test.handle.get());
  EXPECT_EQ(test.check(), ZOT_OK);
  EXPECT_EQ(test.handle.get()->err, ZOT_OK);
}

TEST(CheckGpb, SizeZeroIsRefused) {
  listed_file test("");
  EXPECT_EQ(test.check(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_chk_vail_gpb]:Wrong Input: path=/Wlan/a/1, size=0");
}

TEST(CheckGpb, SizeZeroDoesNotTouchTheDisk) {
  listed_file test("");
  test.check();
  EXPECT_EQ(test.handle.get()->stat.bytes_read, 0U);
  EXPECT_FALSE(test.handle.log().contains_part("Empty content"));
  EXPECT_TRUE(logged_by(test.handle.log(), "zot_priv_verify_gpb").empty());
}

TEST(CheckGpb, EmptyPathIsRefused) {
  listed_file test;
  test.gpb.path[0] = '\0';
  EXPECT_EQ(test.check(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_chk_vail_gpb]:Wrong Input: path=, size=19");
}

TEST(CheckGpb, MissingPathIsRefused) {
  listed_file test;
  std::free(test.gpb.path);
  test.gpb.path = nullptr;
  EXPECT_EQ(test.check(), ZOT_ERR_WRONG_INPUT);
}

TEST(CheckGpb, MissingArgumentIsRefused) {
  listed_file test;
  EXPECT_EQ(zot_priv_chk_vail_gpb(nullptr, &test.gpb, "/r"), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_chk_vail_gpb(test.handle.get(), nullptr, "/r"), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_chk_vail_gpb(test.handle.get(), &test.gpb, nullptr), ZOT_ERR_NULL_INPUT);
}

TEST(CheckGpb, NameOfTheFileHasTwoDoubledSlashes) {
  listed_file test;
  std::filesystem::remove(test.file);
  EXPECT_EQ(test.check(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]:Empty content in " + test.root + "//config//Wlan/a/1");
}

TEST(CheckGpb, NameThatDoesNotFitIsCorrupted) {
  listed_file test;
  const std::string root = test.root + std::string(4096, '/');
  EXPECT_EQ(zot_priv_chk_vail_gpb(test.handle.get(), &test.gpb, root.c_str()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_CORRUPTED);
}

TEST(CheckGpb, WithoutABufferLoadsNothing) {
  listed_file test;
  test.check();
  EXPECT_EQ(test.gpb.content, nullptr);
}

TEST(CheckGpb, BufferOfTheEntryReceivesTheBytes) {
  listed_file test;
  test.gpb.content = static_cast<char *>(std::calloc(1, bytes.size()));
  test.check();
  EXPECT_EQ(std::string(test.gpb.content, test.gpb.size), bytes);
}

TEST(CheckGpb, UpperCaseChecksumNeverFits) {
  listed_file test;
  for (char &digit : test.gpb.checksum) {
    digit = static_cast<char>(std::toupper(static_cast<unsigned char>(digit)));
  }
  EXPECT_EQ(test.check(), ZOT_ERR_CORRUPTED);
}

TEST(CheckGpb, PassIsLogged) {
  listed_file test;
  test.check();
  EXPECT_EQ(test.logged(), lines{"3 1 Verify GPB file: \"/Wlan/a/1\" : Done\n"});
}

TEST(CheckGpb, FailureIsLogged) {
  listed_file test("other bytes");
  EXPECT_EQ(test.check(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.logged(), lines{"3 1 Verify GPB file: \"/Wlan/a/1\" : Failed\n"});
}

TEST(BuildGpbContent, LoadsTheFile) {
  listed_file test;
  EXPECT_EQ(test.build(), ZOT_OK);
  ASSERT_NE(test.gpb.content, nullptr);
  EXPECT_EQ(std::string(test.gpb.content, test.gpb.size), bytes);
}

TEST(BuildGpbContent, UsesTheBufferOfTheEntry) {
  listed_file test;
  char *const buffer = static_cast<char *>(std::calloc(1, bytes.size()));
  test.gpb.content = buffer;
  EXPECT_EQ(test.build(), ZOT_OK);
  EXPECT_EQ(test.gpb.content, buffer);
  EXPECT_EQ(std::string(buffer, bytes.size()), bytes);
}

TEST(BuildGpbContent, FailureIsThatOfTheCheck) {
  listed_file test("other bytes");
  EXPECT_EQ(test.build(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=11/19");
}

TEST(BuildGpbContent, FailureLeavesABlankBufferWithTheEntry) {
  listed_file test("other bytes");
  test.build();
  ASSERT_NE(test.gpb.content, nullptr);
  EXPECT_EQ(std::string(test.gpb.content, test.gpb.size), std::string(11, '\0'));
}

TEST(BuildGpbContent, SizeZeroIsRefusedWithoutABuffer) {
  listed_file test("");
  EXPECT_EQ(test.build(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.gpb.content, nullptr);
}

// K stated -1, and no buffer of that size is allocated.
TEST(BuildGpbContent, NegativeSizeIsCorruptedWithoutABuffer) {
  listed_file test;
  test.gpb.size = static_cast<uint32_t>(-1);
  EXPECT_EQ(test.build(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB size: expect/real size=-1/19");
  EXPECT_EQ(test.gpb.content, nullptr);
}

TEST(BuildGpbContent, MissingHandleOrEntryIsRefused) {
  listed_file test;
  EXPECT_EQ(zot_priv_build_gpb_cont(nullptr, &test.gpb, "/r"), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_build_gpb_cont(test.handle.get(), nullptr, "/r"), ZOT_ERR_NULL_INPUT);
}

}  // namespace
