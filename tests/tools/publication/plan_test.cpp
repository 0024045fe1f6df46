// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/plan.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/tools/support/publishing.hpp"

namespace zot::test {
namespace {

class Plan : public Publishing {};

TEST_F(Plan, GivesAChangedFileTheNextVersion) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "a"), 2U);
  EXPECT_EQ(published("config/Wlan/a/2"), "two");
}

TEST_F(Plan, KeepsTheFileOfTheVersionBefore) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(published("config/Wlan/a/1"), "one");
}

TEST_F(Plan, KeepsTheVersionOfAFileThatStayedTheSame) {
  put("Wlan/a", "one");
  put("Wlan/b", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "b"), 1U);
  EXPECT_FALSE(holds("config/Wlan/b/2"));
}

TEST_F(Plan, GivesAFileThatComesBackItsVersion) {
  put("Wlan/a", "one");
  put("Wlan/b", "one");
  ASSERT_EQ(run().status, 0);
  remove_source("Wlan/b");
  ASSERT_EQ(run().status, 0);
  put("Wlan/b", "one");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "b"), 1U);
  EXPECT_EQ(files_below("config/Wlan/b"), 1U);
}

TEST_F(Plan, GivesBytesThatComeBackTheirVersion) {
  for (const std::string bytes : {"one", "two", "six", "two"}) {
    put("Wlan/a", bytes);
    ASSERT_EQ(run().status, 0);
  }
  EXPECT_EQ(version("Wlan", "a"), 2U);
  EXPECT_EQ(published("config/Wlan/a/2"), "two");
  EXPECT_EQ(files_below("config"), 3U);
}

TEST_F(Plan, TakesNoVersionOfOtherBytesThatAreAsLong) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "a"), 2U);
}

TEST_F(Plan, TakesNoLinkForAVersion) {
  write_bytes(dir_ / "elsewhere", "one");
  std::filesystem::create_directories(publication_ + "/config/Wlan/a");
  std::filesystem::create_symlink(dir_ / "elsewhere", publication_ + "/config/Wlan/a/4");
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "a"), 5U);
}

TEST_F(Plan, SharesTheFilesOfAnotherElement) {
  put("Wlan/a", "one");
  put("Zone/z", "two");
  ASSERT_EQ(run().status, 0);
  const ino_t before = inode(publication_ + "/config/Wlan/a/1");
  ASSERT_EQ(publish_for("other").out,
            "published: 2 files, 2 new, 0 changed, 0 same, 0 removed, 6 bytes\n");
  EXPECT_EQ(files_below("config"), 2U);
  EXPECT_EQ(inode(publication_ + "/config/Wlan/a/1"), before);
}

// An element may have this version in force, with the bytes that the previous K states.
TEST_F(Plan, GivesTheNumberOfALostFileToNoOtherBytes) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  ::unlink((publication_ + "/config/Wlan/a/1").c_str());
  put("Wlan/a", "two");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "a"), 2U);
}

TEST_F(Plan, StaysAboveTheVersionsThatAreSpent) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  write_bytes(publication_ + "/.spent", "41\n");
  put("Wlan/a", "two");
  put("Wlan/b", "new");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "a"), 42U);
  EXPECT_EQ(version("Wlan", "b"), 42U);
}

TEST_F(Plan, FailsWhenTheSpentVersionsCannotBeTold) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  write_bytes(publication_ + "/.spent", "x\n");
  const finished done = run();
  EXPECT_EQ(done.status, 1);
  EXPECT_NE(done.err.find(".spent"), std::string::npos);
}

TEST_F(Plan, NeverReusesAVersionOfAnotherElement) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  ASSERT_EQ(
      run_zotconf({"publish", source_, "--out", publication_, "--index", "other", "--cluster", "c"})
          .status,
      0);
  EXPECT_EQ(published("config/Wlan/a/1"), "one");
  EXPECT_EQ(published("config/Wlan/a/2"), "two");
}

TEST_F(Plan, HoldsAnEmptyConfigurationAgainstALimitThatIsGiven) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  remove_source("Wlan/a");
  EXPECT_EQ(run({"--allow-empty", "--max-removed", "99%"}).status, 6);
}

TEST_F(Plan, RefusesToRemoveMoreThanHalfOfTheEntries) {
  put_keys(5);
  ASSERT_EQ(run().status, 0);
  const auto before = tree(publication_);
  for (const std::string key : {"0", "1", "2"}) {
    remove_source("Wlan/" + key);
  }
  put("Wlan/new", "new");
  const finished done = run();
  EXPECT_EQ(done.status, 6);
  EXPECT_NE(done.err.find("lacks 3 of the 5 entries published before, more than 50%"),
            std::string::npos)
      << done.err;
  EXPECT_EQ(tree(publication_), before);
}

TEST_F(Plan, RemovesHalfOfTheEntries) {
  put_keys(4);
  ASSERT_EQ(run().status, 0);
  remove_source("Wlan/0");
  remove_source("Wlan/1");
  EXPECT_EQ(run().status, 0);
}

TEST_F(Plan, RemovesAsManyEntriesAsItIsAllowed) {
  put_keys(4);
  ASSERT_EQ(run().status, 0);
  remove_source("Wlan/0");
  EXPECT_EQ(run({"--max-removed", "24%"}).status, 6);
  EXPECT_EQ(run({"--max-removed", "25"}).status, 0);
}

TEST_F(Plan, HasNothingToCompareWithADamagedK) {
  put_keys(4);
  ASSERT_EQ(run().status, 0);
  write_bytes(publication_ + "/" + k_name, "{");
  for (const std::string key : {"0", "1", "2"}) {
    remove_source("Wlan/" + key);
  }
  EXPECT_EQ(run().status, 0);
}

}  // namespace
}  // namespace zot::test
