// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/announcement.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "tests/support/files.hpp"

namespace zotconf {
namespace {

class Announcement : public testing::Test {
 protected:
  void SetUp() override { store_.lock(); }

  [[nodiscard]] static element who(const std::string &index) {
    return {.subsys = "AP", .index = index};
  }
  [[nodiscard]] std::string path(const std::string &index, const std::string &suffix) const {
    return latest_file(dir_.path(), who(index), suffix);
  }
  [[nodiscard]] std::string content(const std::string &index, const std::string &suffix) const {
    return zot::test::read_bytes(path(index, suffix));
  }
  size_t finish(announcement &next, const std::vector<published_file> &dropped = {}) {
    progress announced(where_, "announcing", 0, "elements");
    return next.finish(dropped, announced);
  }

  zot::test::temp_dir dir_;
  publication_store store_{dir_.path()};
  std::ostringstream out_;
  std::ostringstream err_;
  console where_{out_, err_};
};

TEST_F(Announcement, ReplacesKAndChecksumOfManyElements) {
  announcement next(store_);
  next.add(who("0A"), "k of a", std::nullopt);
  next.add(who("0B"), "k of b", "signature of b");
  EXPECT_EQ(finish(next), 0U);
  EXPECT_EQ(content("0A", ".k"), "k of a");
  EXPECT_EQ(content("0A", ".checksum"), sha256_text("k of a") + "\n");
  EXPECT_EQ(content("0B", ".k"), "k of b");
  EXPECT_EQ(content("0B", ".k.p7s"), "signature of b");
}

TEST_F(Announcement, ReplacesNothingBeforeItIsFinished) {
  announcement first(store_);
  first.add(who("0A"), "first", std::nullopt);
  EXPECT_FALSE(zot::test::exists(path("0A", ".k")));
  finish(first);
  announcement second(store_);
  second.add(who("0A"), "second", "signature");
  EXPECT_EQ(content("0A", ".k"), "first");
  EXPECT_EQ(content("0A", ".checksum"), sha256_text("first") + "\n");
  EXPECT_FALSE(zot::test::exists(path("0A", ".k.p7s")));
}

TEST_F(Announcement, RemovesWhatItDidNotAnnounce) {
  {
    announcement next(store_);
    next.add(who("0A"), "k", "signature");
  }
  EXPECT_EQ(zot::test::tree(dir_.path()), std::vector<std::string>{".lock"});
}

TEST_F(Announcement, RemovesTheSignatureOfTheKBefore) {
  announcement first(store_);
  first.add(who("0A"), "first", "signature");
  finish(first);
  announcement second(store_);
  second.add(who("0A"), "second", std::nullopt);
  finish(second);
  EXPECT_FALSE(zot::test::exists(path("0A", ".k.p7s")));
}

TEST_F(Announcement, AddsASignatureToTheKThatIsThere) {
  announcement first(store_);
  first.add(who("0A"), "first", std::nullopt);
  finish(first);
  announcement second(store_);
  second.add_signature(who("0A"), "signature");
  finish(second);
  EXPECT_EQ(content("0A", ".k"), "first");
  EXPECT_EQ(content("0A", ".k.p7s"), "signature");
}

TEST_F(Announcement, GivesDroppedFilesTheTimeOfNow) {
  const std::string file = dir_ / "config/Wlan/a/1";
  zot::test::write_bytes(file, "a");
  const auto long_ago = std::filesystem::file_time_type::clock::now() - std::chrono::hours(24);
  std::filesystem::last_write_time(file, long_ago);
  published_file dropped;
  dropped.category_name = "Wlan";
  dropped.key = "a";
  dropped.version = 1;
  announcement next(store_);
  next.add(who("0A"), "k", std::nullopt);
  EXPECT_EQ(finish(next, {dropped}), 0U);
  EXPECT_NE(std::filesystem::last_write_time(file), long_ago);
}

// What was announced before the failure is complete, and nothing temporary remains.
TEST_F(Announcement, LeavesCompleteElementsWhenItFails) {
  announcement *const next = new announcement(store_);
  next->add(who("0A"), "k of a", std::nullopt);
  next->add(who("0B"), "k of b", std::nullopt);
  std::filesystem::create_directories(path("0B", ".k") + "/in the way");
  EXPECT_THROW(finish(*next), std::filesystem::filesystem_error);
  delete next;
  EXPECT_EQ(content("0A", ".k"), "k of a");
  EXPECT_EQ(content("0A", ".checksum"), sha256_text("k of a") + "\n");
  EXPECT_EQ(zot::test::tree(dir_.path()).size(), 3U) << "the lock, K and checksum of 0A";
}

}  // namespace
}  // namespace zotconf
