// SPDX-License-Identifier: Apache-2.0
// The readers that select which pair of files below a directory is verified.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/storage/storage_records.hpp"
#include "zot_priv/storage/k_file.hpp"

namespace {

using namespace zot::test;

using flagged_reader = int (*)(zot_ctx *, zot_k *, const char *, int);
using short_reader = int (*)(zot_ctx *, zot_k *, const char *);

struct reader_case {
  const char *name;
  const char *k;
  const char *checksum;
  flagged_reader with_flags;
  short_reader without_flags;
};

void PrintTo(const reader_case &tested, std::ostream *out) {
  *out << tested.name;
}

const std::vector<reader_case> readers = {
    {"Current", "/knowledge/subsys.k", "/knowledge/subsys.checksum", zot_priv_read_cur_k_f,
     zot_priv_read_cur_k},
    {"Last", "/knowledge/prev_subsys.k", "/knowledge/prev_subsys.checksum", zot_priv_read_prev_k_f,
     zot_priv_read_prev_k},
    {"Corrupted", "/knowledge/corrupted.k", "/knowledge/corrupted.checksum",
     zot_priv_read_corrupted_k_f, zot_priv_read_corrupted_k},
    {"Temporary", "subsys.k", "subsys.checksum", zot_priv_read_tmp_k_f, zot_priv_read_tmp_k},
};

class KReader : public testing::TestWithParam<reader_case> {
 protected:
  // Installs every pair, each from another configuration.
  void install_all() {
    for (const reader_case &pair : readers) {
      small_publication(pair.name).install_k(root_, pair.k, pair.checksum);
    }
  }

  element tested_;
  std::string root_ = tested_.dir() / "stored";
  zot::k_owner k_ = zot::make_k();
};

TEST_P(KReader, ReadsItsOwnPairWithFlags) {
  install_all();
  ASSERT_EQ(GetParam().with_flags(tested_.handle(), k_.get(), root_.c_str(), ZOT_READ_K_OPTIONAL),
            ZOT_OK)
      << tested_.error_text();
  EXPECT_STREQ(k_->meta.config_id, GetParam().name);
}

TEST_P(KReader, ReadsItsOwnPairWithoutFlags) {
  install_all();
  ASSERT_EQ(GetParam().without_flags(tested_.handle(), k_.get(), root_.c_str()), ZOT_OK)
      << tested_.error_text();
  EXPECT_STREQ(k_->meta.config_id, GetParam().name);
}

TEST_P(KReader, TakesAnAbsentFileForExpectedWithTheFlag) {
  mark_status(tested_.handle());
  EXPECT_EQ(GetParam().with_flags(tested_.handle(), k_.get(), root_.c_str(), ZOT_READ_K_OPTIONAL),
            ZOT_ERR_NO_FILE);
  EXPECT_TRUE(has_marked_status(tested_.handle()));
}

TEST_P(KReader, RecordsAnAbsentFileWithoutFlags) {
  mark_status(tested_.handle());
  EXPECT_EQ(GetParam().without_flags(tested_.handle(), k_.get(), root_.c_str()), ZOT_ERR_NO_FILE);
  EXPECT_FALSE(has_marked_status(tested_.handle()));
}

TEST_P(KReader, NamesItsChecksumFileInTheLog) {
  EXPECT_EQ(GetParam().without_flags(tested_.handle(), k_.get(), root_.c_str()), ZOT_ERR_NO_FILE);
  EXPECT_TRUE(tested_.log().contains("file = " + root_ + "/" + GetParam().checksum + "\n"))
      << tested_.log().dump();
}

INSTANTIATE_TEST_SUITE_P(Pairs, KReader, testing::ValuesIn(readers),
                         [](const auto &tested) { return tested.param.name; });

struct pair_reader {
  int run(const char *root, const char *k_name, const char *checksum_name) {
    return _zot_priv_read_k_f(tested.handle(), k.get(), root, k_name, checksum_name, 0);
  }

  element tested;
  zot::k_owner k = zot::make_k();
};

TEST(ReadK, MissingArgumentIsRefusedWithoutRecording) {
  pair_reader reader;
  mark_status(reader.tested.handle());
  EXPECT_EQ(_zot_priv_read_k_f(nullptr, reader.k.get(), "/r", "k", "c", 0), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(_zot_priv_read_k_f(reader.tested.handle(), nullptr, "/r", "k", "c", 0),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(reader.run(nullptr, "k", "c"), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(reader.run("/r", nullptr, "c"), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(reader.run("/r", "k", nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(has_marked_status(reader.tested.handle()));
}

TEST(ReadK, EmptyRootIsWrongInput) {
  pair_reader reader;
  EXPECT_EQ(reader.run("", "k", "c"), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(reader.tested.error_text(), "Wrong input value");
}

TEST(ReadK, EmptyKNameIsWrongInput) {
  pair_reader reader;
  EXPECT_EQ(reader.run("/r", "", "c"), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(reader.tested.error_text(), "Wrong input value");
}

TEST(ReadK, EmptyChecksumNameIsWrongInput) {
  pair_reader reader;
  EXPECT_EQ(reader.run("/r", "k", ""), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(reader.tested.error_text(), "Wrong input value");
}

TEST(ReadK, RootThatEndsInASlashOpensAllTheSame) {
  pair_reader reader;
  const std::string root = reader.tested.dir() / "stored/";
  small_publication().install_k(root + "knowledge", "subsys.k", "subsys.checksum");
  EXPECT_EQ(reader.run(root.c_str(), "/knowledge/subsys.k", "/knowledge/subsys.checksum"), ZOT_OK)
      << reader.tested.error_text();
}

TEST(ReadK, PathsAreJoinedWithASlashWhateverTheyHold) {
  pair_reader reader;
  const std::string root = reader.tested.dir() / "stored/";
  write_bytes(root + "knowledge/subsys.checksum", sha256_hex("absent"));
  EXPECT_EQ(reader.run(root.c_str(), "/knowledge/subsys.k", "/knowledge/subsys.checksum"),
            ZOT_ERR_CORRUPTED);
  EXPECT_EQ(reader.tested.error_text(),
            "[zot_priv_verify_k_file]:unable to read " + root + "//knowledge/subsys.k");
}

TEST(ReadK, PathThatDoesNotFitIsRefusedAndNotCut) {
  pair_reader reader;
  const std::string root = reader.tested.dir() / std::string(ZOT_PATH_SIZE, 'x');
  EXPECT_EQ(reader.run(root.c_str(), "subsys.k", "subsys.checksum"), ZOT_ERR_WRONG_INPUT);
}

// A stored configuration, and the K that it is expected to be.
struct expected_k {
  explicit expected_k(const publication &stored = small_publication()) : text(stored.k_text()) {
    stored.install_k(root + "/knowledge", "subsys.k", "subsys.checksum");
    tested.log().clear();
    mark_status(tested.handle());
  }

  int run() { return zot::read_expected_k(tested.handle(), k.get(), root.c_str(), *expected); }

  std::string text;
  element tested;
  std::string root = tested.dir() / "stored";
  zot::k_owner expected = make_k_of(tested, small_publication());
  zot::k_owner k = zot::make_k();
};

TEST(ReadExpectedK, KThatIsTheExpectedOneSharesItsTree) {
  expected_k read;
  ASSERT_EQ(read.run(), ZOT_OK) << read.tested.error_text();
  EXPECT_EQ(read.k->json, read.expected->json);
}

TEST(ReadExpectedK, HoldsWhatWasRead) {
  expected_k read;
  ASSERT_EQ(read.run(), ZOT_OK);
  EXPECT_EQ(data_of(*read.k), read.text);
  EXPECT_NE(read.k->data, read.expected->data);
  EXPECT_STREQ(read.k->checksum, sha256_hex(read.text).c_str());
  EXPECT_STREQ(read.k->meta.config_id, "config-1");
}

TEST(ReadExpectedK, KThatIsAnotherOneIsParsed) {
  expected_k read(small_publication("config-2"));
  ASSERT_EQ(read.run(), ZOT_OK) << read.tested.error_text();
  EXPECT_NE(read.k->json, read.expected->json);
  EXPECT_STREQ(read.k->meta.config_id, "config-2");
}

TEST(ReadExpectedK, WrongChecksumIsRefusedThoughTheTextIsTheExpectedOne) {
  const std::string other(64, 'a');
  expected_k read(small_publication().set_checksum_text(other + "\n"));
  EXPECT_EQ(read.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(read.tested.error_text(), "[zot_priv_verify_k_file]: checksum mismatch expect/real: " +
                                          other + "/" + sha256_hex(read.text));
  EXPECT_EQ(read.k->json, nullptr);
}

TEST(ReadExpectedK, AbsentKIsRecorded) {
  expected_k read;
  std::filesystem::remove_all(read.root);
  EXPECT_EQ(read.run(), ZOT_ERR_NO_FILE);
  EXPECT_EQ(read.tested.handle()->err, ZOT_ERR_NO_FILE);
}

// "<function> <level> <mask> <text>" of each message, in order.
std::vector<std::string> all_lines(const log_capture &log) {
  std::vector<std::string> lines;
  for (const log_record &line : log.lines()) {
    lines.push_back(line.func + " " + std::to_string(line.level) + " " + std::to_string(line.mask) +
                    " " + line.text);
  }
  return lines;
}

TEST(ReadExpectedK, LogsWhatTheReaderOfTheCurrentKLogs) {
  expected_k read;
  ASSERT_EQ(read.run(), ZOT_OK);
  const std::vector<std::string> logged = all_lines(read.tested.log());
  read.tested.log().clear();
  const zot::k_owner plain = zot::make_k();
  ASSERT_EQ(zot_priv_read_cur_k_f(read.tested.handle(), plain.get(), read.root.c_str(), 0), ZOT_OK);
  EXPECT_EQ(logged, all_lines(read.tested.log()));
  EXPECT_FALSE(logged.empty());
}

TEST(ReadExpectedK, SuccessIsRecorded) {
  expected_k read;
  ASSERT_EQ(read.run(), ZOT_OK);
  EXPECT_EQ(read.tested.handle()->err, ZOT_OK);
  EXPECT_EQ(read.tested.error_text(), "Success");
}

TEST(ReadExpectedK, ReadBytesCountChecksumAndK) {
  expected_k read;
  const uint64_t before = read.tested.handle()->stat.bytes_read;
  ASSERT_EQ(read.run(), ZOT_OK);
  EXPECT_EQ(read.tested.handle()->stat.bytes_read - before, 65 + read.text.size());
}

}  // namespace
