// SPDX-License-Identifier: Apache-2.0
// Verification of one K file against its checksum file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/storage/storage_records.hpp"

namespace {

using namespace zot::test;
using lines = std::vector<std::string>;

constexpr const char *verify = "zot_priv_verify_k_file";

// A K and its checksum file in a separate directory.
struct stored_k {
  explicit stored_k(const publication &published = small_publication()) : text(published.k_text()) {
    write_bytes(k_path, text);
    write_bytes(checksum_path, published.checksum_text());
    tested.log().clear();
    mark_status(tested.handle());
  }

  int run(int flags = 0) {
    return zot_priv_verify_k_file(tested.handle(), k.get(), k_path.c_str(), checksum_path.c_str(),
                                  flags);
  }

  element tested;
  std::string text;
  std::string k_path = tested.dir() / "stored/some.k";
  std::string checksum_path = tested.dir() / "stored/some.checksum";
  zot::k_owner k = zot::make_k();
};

std::string wrong_checksum_text(const std::string &line, std::size_t length, int error) {
  return std::string("[") + verify + "]: unable to get correct checksum of K: " + line +
         " len = " + std::to_string(length) + ": " + std::strerror(error);
}

std::string upper_case(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

TEST(VerifyKFile, MissingArgumentIsRefusedWithoutRecording) {
  stored_k stored;
  zot_ctx *const handle = stored.tested.handle();
  const char *const k_path = stored.k_path.c_str();
  const char *const checksum_path = stored.checksum_path.c_str();
  EXPECT_EQ(zot_priv_verify_k_file(nullptr, stored.k.get(), k_path, checksum_path, 0),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_verify_k_file(handle, stored.k.get(), nullptr, checksum_path, 0),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_verify_k_file(handle, stored.k.get(), k_path, nullptr, 0), ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(has_marked_status(handle));
}

TEST(VerifyKFile, EmptyKPathIsWrongInput) {
  stored_k stored;
  stored.k_path.clear();
  EXPECT_EQ(stored.run(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(stored.tested.error_text(), "Wrong input value");
}

TEST(VerifyKFile, EmptyChecksumPathIsWrongInput) {
  stored_k stored;
  stored.checksum_path.clear();
  EXPECT_EQ(stored.run(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(stored.tested.error_text(), "Wrong input value");
}

TEST(VerifyKFile, ChecksumLineWithANewlineVerifies) {
  stored_k stored;
  write_bytes(stored.checksum_path, sha256_hex(stored.text) + "\n");
  EXPECT_EQ(stored.run(), ZOT_OK) << stored.tested.error_text();
}

TEST(VerifyKFile, ChecksumLineWithoutANewlineVerifies) {
  stored_k stored;
  write_bytes(stored.checksum_path, sha256_hex(stored.text));
  EXPECT_EQ(stored.run(), ZOT_OK) << stored.tested.error_text();
}

TEST(VerifyKFile, OnlyTheFirstLineOfTheChecksumFileCounts) {
  stored_k stored;
  write_bytes(stored.checksum_path, sha256_hex(stored.text) + "\nsubsys.k\n");
  EXPECT_EQ(stored.run(), ZOT_OK) << stored.tested.error_text();
}

TEST(VerifyKFile, VerifiedKFillsTheRecord) {
  stored_k stored;
  ASSERT_EQ(stored.run(), ZOT_OK);
  EXPECT_EQ(data_of(*stored.k), stored.text);
  EXPECT_STREQ(stored.k->checksum, sha256_hex(stored.text).c_str());
  EXPECT_STREQ(stored.k->meta.config_id, "config-1");
  EXPECT_NE(stored.k->gpbs, nullptr);
}

TEST(VerifyKFile, SuccessIsRecorded) {
  stored_k stored;
  ASSERT_EQ(stored.run(), ZOT_OK);
  EXPECT_EQ(stored.tested.handle()->err, ZOT_OK);
  EXPECT_EQ(stored.tested.error_text(), "Success");
}

TEST(VerifyKFile, PathAndRootOfTheRecordAreNotTouched) {
  stored_k stored;
  zot_priv_k_set_path(stored.k.get(), "/some/path");
  zot_priv_k_set_root(stored.k.get(), "/some/root");
  ASSERT_EQ(stored.run(), ZOT_OK);
  EXPECT_STREQ(stored.k->path, "/some/path");
  EXPECT_STREQ(stored.k->root, "/some/root");
}

TEST(VerifyKFile, UpperCaseChecksumIsAMismatch) {
  stored_k stored;
  const std::string digest = sha256_hex(stored.text);
  write_bytes(stored.checksum_path, upper_case(digest) + "\n");
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(),
            "[zot_priv_verify_k_file]: checksum mismatch expect/real: " + upper_case(digest) + "/" +
                digest);
}

TEST(VerifyKFile, LineOf63CharactersIsNoChecksum) {
  stored_k stored;
  const std::string line(63, 'a');
  write_bytes(stored.checksum_path, line + "\n");
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(), wrong_checksum_text(line, 63, 0));
}

TEST(VerifyKFile, LineOf65CharactersIsNoChecksum) {
  stored_k stored;
  const std::string line = sha256_hex(stored.text) + "0";
  write_bytes(stored.checksum_path, line + "\n");
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(), wrong_checksum_text(line, 65, 0));
}

TEST(VerifyKFile, LongLineIsPrintedCutTo65Characters) {
  stored_k stored;
  write_bytes(stored.checksum_path, std::string(200, 'b') + "\n");
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(), wrong_checksum_text(std::string(65, 'b'), 65, 0));
}

TEST(VerifyKFile, WrongLengthIsCorruptedWhateverErrnoWasBefore) {
  stored_k stored;
  write_bytes(stored.checksum_path, "abc\n");
  errno = ENOENT;
  EXPECT_EQ(stored.run(ZOT_READ_K_OPTIONAL), ZOT_ERR_CORRUPTED);
}

TEST(VerifyKFile, EmptyChecksumFileIsCorrupted) {
  stored_k stored;
  write_bytes(stored.checksum_path, "");
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  const std::string start =
      "[zot_priv_verify_k_file]: unable to get correct checksum of K:  len = 0: ";
  EXPECT_EQ(stored.tested.error_text().substr(0, start.size()), start);
}

TEST(VerifyKFile, UnreadableChecksumFileIsCorruptedEvenWhenOptional) {
  stored_k stored;
  std::filesystem::remove(stored.checksum_path);
  std::filesystem::create_directory(stored.checksum_path);
  EXPECT_EQ(stored.run(ZOT_READ_K_OPTIONAL), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(), wrong_checksum_text("", 0, EISDIR));
}

void replace_by_fifo(const std::string &path) {
  std::filesystem::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
}

TEST(VerifyKFile, FifoInThePlaceOfTheChecksumFileIsCorruptedAtOnce) {
  stored_k stored;
  replace_by_fifo(stored.checksum_path);
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(), wrong_checksum_text("", 0, ENODATA));
}

TEST(VerifyKFile, FifoInThePlaceOfKIsCorruptedAtOnce) {
  stored_k stored;
  replace_by_fifo(stored.k_path);
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(),
            std::string("[") + verify + "]:unable to read " + stored.k_path);
}

TEST(VerifyKFile, AbsentOptionalChecksumFileKeepsTheEarlierStatus) {
  stored_k stored;
  std::filesystem::remove(stored.checksum_path);
  EXPECT_EQ(stored.run(ZOT_READ_K_OPTIONAL), -15);
  EXPECT_TRUE(has_marked_status(stored.tested.handle())) << stored.tested.error_text();
}

TEST(VerifyKFile, AbsentOptionalChecksumFileIsOnlyLogged) {
  stored_k stored;
  std::filesystem::remove(stored.checksum_path);
  stored.run(ZOT_READ_K_OPTIONAL);
  const lines expected = {
      std::string("3 10 [zot_priv_verify_k_file] Ignore: ") + std::strerror(ENOENT) + "\n",
      "3 10 file = " + stored.checksum_path + "\n"};
  EXPECT_EQ(lines_of(stored.tested.log(), verify), expected);
}

TEST(VerifyKFile, AbsentChecksumFileIsRecordedWithoutTheFlag) {
  stored_k stored;
  std::filesystem::remove(stored.checksum_path);
  EXPECT_EQ(stored.run(0), ZOT_ERR_NO_FILE);
  EXPECT_EQ(stored.tested.handle()->err, ZOT_ERR_NO_FILE);
  EXPECT_EQ(stored.tested.error_text(),
            std::string("[zot_priv_verify_k_file]: ") + std::strerror(ENOENT));
}

TEST(VerifyKFile, AbsentChecksumFileIsNamedInTheLog) {
  stored_k stored;
  std::filesystem::remove(stored.checksum_path);
  stored.run(0);
  const lines expected = {
      std::string("0 1 [zot_priv_verify_k_file]: ") + std::strerror(ENOENT) + "\n",
      "3 10 file = " + stored.checksum_path + "\n"};
  EXPECT_EQ(lines_of(stored.tested.log(), verify), expected);
}

TEST(VerifyKFile, WrongChecksumFileIsNamedInTheLog) {
  stored_k stored;
  write_bytes(stored.checksum_path, "abc\n");
  stored.run(0);
  const lines expected = {"0 1 " + wrong_checksum_text("abc", 3, 0) + "\n",
                          "3 10 file = " + stored.checksum_path + "\n"};
  EXPECT_EQ(lines_of(stored.tested.log(), verify), expected);
}

TEST(VerifyKFile, OtherFlagBitsAreIgnored) {
  stored_k stored;
  std::filesystem::remove(stored.checksum_path);
  EXPECT_EQ(stored.run(~ZOT_READ_K_OPTIONAL), ZOT_ERR_NO_FILE);
  EXPECT_FALSE(has_marked_status(stored.tested.handle()));
}

TEST(VerifyKFile, MissingKBesideAChecksumIsCorrupted) {
  stored_k stored;
  std::filesystem::remove(stored.k_path);
  EXPECT_EQ(stored.run(ZOT_READ_K_OPTIONAL), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(), "[zot_priv_verify_k_file]:unable to read " + stored.k_path);
}

TEST(VerifyKFile, EmptyKBesideAChecksumIsCorrupted) {
  stored_k stored;
  write_bytes(stored.k_path, "");
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(), "[zot_priv_verify_k_file]:unable to read " + stored.k_path);
}

TEST(VerifyKFile, KWithoutADigestIsCorrupted) {
  stored_k stored;
  write_bytes(stored.k_path, std::string_view("\0{}", 3));
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(), "[zot_priv_verify_k_file]:unable to calculate checksum");
}

TEST(VerifyKFile, ChangedKIsAMismatch) {
  stored_k stored;
  const std::string changed = stored.text + " ";
  write_bytes(stored.k_path, changed);
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(),
            "[zot_priv_verify_k_file]: checksum mismatch expect/real: " + sha256_hex(stored.text) +
                "/" + sha256_hex(changed));
}

TEST(VerifyKFile, DataOfAMismatchStaysInTheRecord) {
  stored_k stored;
  write_bytes(stored.k_path, "other bytes");
  ASSERT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(data_of(*stored.k), "other bytes");
}

TEST(VerifyKFile, InvalidContentIsReportedByTheContentCheck) {
  stored_k stored(small_publication().set_k_text(R"({"clusterId": "c"})"));
  EXPECT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.error_text(), "[zot_priv_chk_vail_k_cont]: wrong gpbs format.");
}

TEST(VerifyKFile, ReadBytesCountChecksumAndK) {
  stored_k stored;
  const uint64_t before = stored.tested.handle()->stat.bytes_read;
  ASSERT_EQ(stored.run(), ZOT_OK);
  EXPECT_EQ(stored.tested.handle()->stat.bytes_read - before, 65 + stored.text.size());
}

TEST(VerifyKFile, ReadBytesCountOnlyTheChecksumWhenKIsMissing) {
  stored_k stored;
  std::filesystem::remove(stored.k_path);
  const uint64_t before = stored.tested.handle()->stat.bytes_read;
  ASSERT_EQ(stored.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(stored.tested.handle()->stat.bytes_read - before, 65U);
}

TEST(VerifyKFile, ReadBytesCountNothingWithoutAChecksum) {
  stored_k stored;
  std::filesystem::remove(stored.checksum_path);
  const uint64_t before = stored.tested.handle()->stat.bytes_read;
  ASSERT_EQ(stored.run(), ZOT_ERR_NO_FILE);
  EXPECT_EQ(stored.tested.handle()->stat.bytes_read, before);
}

}  // namespace
