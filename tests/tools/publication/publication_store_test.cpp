// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publication_store.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/files.hpp"

namespace zotconf {
namespace {

TEST(SplitMemberName, TakesConfigCategoryKeyAndVersion) {
  const std::vector<std::string> parts = {"config", "Wlan", "a", "1"};
  for (const std::string name :
       {"config/Wlan/a/1", "/config/Wlan/a/1", "/config//Wlan/a/1", "//config///Wlan//a//1"}) {
    EXPECT_EQ(split_member_name(name), parts) << name;
  }
}

TEST(SplitMemberName, RefusesEveryOtherForm) {
  for (const std::string name : {"", "/", "config", "/config/Wlan/a", "/config/Wlan/a/1/2",
                                 "/config/Wlan/a/1/", "/file/knowledge/AP/x", "/Config/Wlan/a/1",
                                 "/config/./a/1", "/config/Wlan/../1", "../config/Wlan/a"}) {
    EXPECT_FALSE(split_member_name(name)) << name;
  }
}

class PublicationStore : public testing::Test {
 protected:
  [[nodiscard]] static published_file file_of(const std::string &bytes) {
    published_file file;
    file.category_name = "Wlan";
    file.key = "a";
    file.size = bytes.size();
    file.checksum = sha256_text(bytes);
    return file;
  }
  void put_version(const std::string &version, const std::string &bytes) const {
    zot::test::write_bytes(dir_ / ("config/Wlan/a/" + version), bytes);
  }
  zot::test::temp_dir dir_;
  publication_store store_{dir_.path()};
};

TEST_F(PublicationStore, TellsVersionsHighestFirst) {
  EXPECT_TRUE(store_.versions_of(file_of("x")).empty());
  for (const std::string version : {"9", "10", "2", "README", ".9.tmp"}) {
    put_version(version, "x");
  }
  EXPECT_EQ(store_.versions_of(file_of("x")), (std::vector<uint64_t>{10, 9, 2}));
}

TEST_F(PublicationStore, TellsSizeAndChecksumOfARegularFile) {
  put_version("3", "one");
  published_file file = file_of("one");
  file.version = 3;
  EXPECT_EQ(store_.size_of(file), 3U);
  EXPECT_EQ(store_.checksum_of(file), sha256_text("one"));
  file.size = 4;
  EXPECT_EQ(store_.checksum_of(file), "") << "another size";
}

TEST_F(PublicationStore, TakesNoLinkForAFile) {
  put_version("3", "one");
  std::filesystem::create_symlink("3", dir_ / "config/Wlan/a/4");
  published_file file = file_of("one");
  file.version = 4;
  EXPECT_FALSE(store_.size_of(file));
  EXPECT_EQ(store_.checksum_of(file), "");
  file.version = 5;
  EXPECT_FALSE(store_.size_of(file));
  EXPECT_EQ(store_.checksum_of(file), "");
}

TEST_F(PublicationStore, RaisesTheSpentVersionOnly) {
  EXPECT_EQ(store_.spent_version(), 0U);
  store_.lock();
  store_.spend(7);
  store_.spend(3);
  EXPECT_EQ(store_.spent_version(), 7U);
  EXPECT_EQ(zot::test::read_bytes(dir_ / ".spent"), "7\n");
}

TEST_F(PublicationStore, WritesNoSpentVersionWithoutNeed) {
  store_.lock();
  store_.spend(0);
  EXPECT_FALSE(zot::test::exists(dir_ / ".spent"));
}

TEST_F(PublicationStore, LocksToReadWithoutALockFile) {
  store_.lock_to_read();
  EXPECT_FALSE(zot::test::exists(dir_ / ".lock"));
}

}  // namespace
}  // namespace zotconf
