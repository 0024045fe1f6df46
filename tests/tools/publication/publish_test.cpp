// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publish.hpp"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/publishing.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

class Publish : public Publishing {};

TEST_F(Publish, WritesTheFilesBelowConfig) {
  put("Wlan/a", "ssid=a");
  put("Zone/z", "country=DE");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(published("config/Wlan/a/1"), "ssid=a");
  EXPECT_EQ(published("config/Zone/z/1"), "country=DE");
}

TEST_F(Publish, ListsEachFileInK) {
  put("Wlan/a", "ssid=a");
  ASSERT_EQ(run().status, 0);
  const zot::json_tree root(cJSON_Parse(published(k_name).c_str()));
  const cJSON *const files = cJSON_GetObjectItemCaseSensitive(root.get(), "gpbs");
  ASSERT_EQ(cJSON_GetArraySize(files), 1);
  const cJSON *const file = cJSON_GetArrayItem(files, 0);
  EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(file, "path")), "/Wlan/a/1");
  EXPECT_EQ(cJSON_GetNumberValue(cJSON_GetObjectItem(file, "size")), 6);
  EXPECT_EQ(cJSON_GetStringValue(cJSON_GetObjectItem(file, "checksum")), sha256_hex("ssid=a"));
}

TEST_F(Publish, RepairsADamagedFileOfTheSameSize) {
  put("Wlan/a", "ssid=a");
  ASSERT_EQ(run().status, 0);
  write_bytes(publication_ + "/config/Wlan/a/1", "ssid=X");
  const std::string before = published(k_name);
  const finished done = run();
  EXPECT_TRUE(done.out.starts_with("published: 1 files, 0 new, 0 changed, 1 same")) << done.out;
  EXPECT_EQ(published("config/Wlan/a/1"), "ssid=a");
  EXPECT_NE(published(k_name), before) << "elements have to fetch it again";
}

TEST_F(Publish, WarnsWhenTheClusterChanges) {
  put("Wlan/a", "ssid=a");
  ASSERT_EQ(run().err, "");
  const finished done = publish_for("001122334455");
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(
      done.err,
      "zotconf: warning: the cluster changes from \"cluster-1\" to \"c\": elements mark every "
      "entry as modified\n");
}

TEST_F(Publish, WritesTheChecksumOfKAsALine) {
  put("Wlan/a", "ssid=a");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(published(checksum_name), sha256_hex(published(k_name)) + "\n");
}

TEST_F(Publish, StatesTheMetadataInK) {
  put("Wlan/a", "ssid=a");
  ASSERT_EQ(
      run({"--config-id", "00000000-1111-2222-3333-444444444444", "--firmware", "7.1"}).status, 0);
  EXPECT_EQ(k().cluster, "cluster-1");
  EXPECT_EQ(k().config_id, "00000000-1111-2222-3333-444444444444");
  EXPECT_EQ(k().firmware, "7.1");
}

TEST_F(Publish, LeavesMetadataThatIsNotGivenOutOfK) {
  put("Wlan/a", "ssid=a");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(published(k_name).find("configId"), std::string::npos);
  EXPECT_EQ(published(k_name).find("firmwareVersion"), std::string::npos);
}

TEST_F(Publish, NamesTheElementByItsUpperCaseIndex) {
  put("Wlan/a", "ssid=a");
  ASSERT_EQ(run_zotconf({"publish", source_, "--out", publication_, "--subsys", "DP", "--index",
                         "aa:bb", "--cluster", "c"})
                .status,
            0);
  EXPECT_TRUE(holds("file/knowledge/DP/AA:BB/latest/AA:BB.k"));
  EXPECT_TRUE(holds("file/knowledge/DP/AA:BB/latest/AA:BB.checksum"));
}

// From this time prune computes how long K has not named the file.
TEST_F(Publish, GivesAFileThatKDropsTheTimeOfNow) {
  put("Wlan/a", "one");
  put("Wlan/b", "one");
  put("Wlan/c", "one");
  ASSERT_EQ(run().status, 0);
  const auto long_ago = std::filesystem::file_time_type::clock::now() - std::chrono::hours(24);
  for (const std::string key : {"a", "b", "c"}) {
    std::filesystem::last_write_time(publication_ + "/config/Wlan/" + key + "/1", long_ago);
  }
  put("Wlan/a", "two");
  remove_source("Wlan/b");
  ASSERT_EQ(run().status, 0);
  const auto is_old = [&](const std::string &key) {
    return std::filesystem::last_write_time(publication_ + "/config/Wlan/" + key + "/1") ==
           long_ago;
  };
  EXPECT_FALSE(is_old("a"));
  EXPECT_FALSE(is_old("b"));
  EXPECT_TRUE(is_old("c"));
}

TEST_F(Publish, CountsWhatItDidInOneLine) {
  put("Wlan/a", "one");
  put("Wlan/b", "one");
  put("Wlan/c", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "second");
  put("Wlan/d", "new");
  remove_source("Wlan/c");
  EXPECT_EQ(run().out, "published: 3 files, 1 new, 1 changed, 1 same, 1 removed, 12 bytes\n");
}

TEST_F(Publish, SaysThatNothingChanged) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  const finished again = run();
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.out, "unchanged: 1 files, 0 new, 0 changed, 1 same, 0 removed, 3 bytes\n");
}

TEST_F(Publish, LeavesTheFilesAloneWhenNothingChanged) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  const ino_t before = inode(publication_ + "/" + k_name);
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(inode(publication_ + "/" + k_name), before);
}

TEST_F(Publish, AnnouncesChangedMetadataOfUnchangedFiles) {
  put("Wlan/a", "one");
  ASSERT_EQ(run({"--firmware", "1"}).status, 0);
  EXPECT_EQ(run({"--firmware", "2"}).out,
            "published: 1 files, 0 new, 0 changed, 1 same, 0 removed, 3 bytes\n");
  EXPECT_EQ(k().firmware, "2");
}

TEST_F(Publish, RestoresALostChecksum) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  ::unlink((publication_ + "/" + checksum_name).c_str());
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(published(checksum_name), sha256_hex(published(k_name)) + "\n");
}

TEST_F(Publish, RestoresALostFileUnderItsVersion) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  ::unlink((publication_ + "/config/Wlan/a/1").c_str());
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(published("config/Wlan/a/1"), "one");
}

TEST_F(Publish, ReplacesADamagedKAndSaysSo) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  write_bytes(publication_ + "/" + k_name, "{\"gpbs\": 7}");
  const finished again = run();
  EXPECT_EQ(again.status, 0);
  EXPECT_NE(again.err.find("damaged"), std::string::npos);
  EXPECT_EQ(version("Wlan", "a"), 1U);
}

TEST_F(Publish, LeavesNoTemporaryFile) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(tree(publication_),
            (std::vector<std::string>{".lock", "config/Wlan/a/1", checksum_name, k_name}));
}

TEST_F(Publish, RefusesASourceWithoutFiles) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  const std::string before = published(k_name);
  remove_source("Wlan/a");
  const finished done = run();
  EXPECT_EQ(done.status, 6);
  EXPECT_NE(done.err.find("--allow-empty"), std::string::npos) << done.err;
  EXPECT_EQ(done.out, "");
  EXPECT_EQ(published(k_name), before);
}

TEST_F(Publish, PublishesAnEmptyConfigurationWhenThatIsAllowed) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  remove_source("Wlan/a");
  EXPECT_EQ(run({"--allow-empty"}).out,
            "published: 0 files, 0 new, 0 changed, 0 same, 1 removed, 0 bytes\n");
}

TEST_F(Publish, WritesNothingInADryRun) {
  put("Wlan/a", "one");
  const finished first = run({"--dry-run"});
  EXPECT_EQ(first.status, 0);
  EXPECT_EQ(first.out,
            "CHANGE  CATEGORY  KEY  VERSION\n"
            "new     Wlan      a     - -> 1\n"
            "would publish: 1 files, 1 new, 0 changed, 0 same, 0 removed, 3 bytes\n");
  EXPECT_FALSE(exists(publication_));
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  const auto before = snapshot(publication_);
  EXPECT_NE(run({"--dry-run"}).out.find("changed  Wlan      a     1 -> 2\n"), std::string::npos);
  EXPECT_EQ(snapshot(publication_), before);
}

TEST_F(Publish, SaysInADryRunThatNothingWouldChange) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(run({"--dry-run"}).out,
            "unchanged: 1 files, 0 new, 0 changed, 1 same, 0 removed, 3 bytes\n");
}

TEST_F(Publish, RefusesInADryRunWhatItWouldRefuse) {
  put("Wlan/a", "one");
  put("Wlan/b", "one");
  put("Wlan/c", "one");
  ASSERT_EQ(run().status, 0);
  remove_source("Wlan/b");
  remove_source("Wlan/c");
  EXPECT_EQ(run({"--dry-run"}).status, 6);
  EXPECT_EQ(run({"--dry-run", "--max-removed", "100%"}).status, 0);
}

TEST_F(Publish, TellsTheChangesOfADryRunAsJson) {
  put("Wlan/a", "one");
  put("Wlan/b", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  put("Wlan/c", "new");
  remove_source("Wlan/b");
  const json_value told(run({"--dry-run", "--json"}).out);
  EXPECT_EQ(told["result"].text(), "would_publish");
  EXPECT_EQ(told["written"].number(), 2);
  ASSERT_EQ(told["changes"].size(), 3);
  EXPECT_EQ(told["changes"][0]["change"].text(), "changed");
  EXPECT_EQ(told["changes"][0]["old_version"].number(), 1);
  EXPECT_EQ(told["changes"][0]["new_version"].number(), 2);
  EXPECT_EQ(told["changes"][1]["change"].text(), "new");
  EXPECT_TRUE(told["changes"][1]["old_version"].is_null());
  EXPECT_EQ(told["changes"][2]["change"].text(), "removed");
  EXPECT_EQ(told["changes"][2]["category"].text(), "Wlan");
  EXPECT_EQ(told["changes"][2]["key"].text(), "b");
  EXPECT_TRUE(told["changes"][2]["new_version"].is_null());
}

TEST_F(Publish, CountsTheFilesThatItWrote) {
  put("Wlan/a", "one");
  EXPECT_EQ(json_value(run({"--json"}).out)["written"].number(), 1);
  EXPECT_EQ(json_value(publish_for("other", {"--json"}).out)["written"].number(), 0);
}

TEST_F(Publish, FailsWhenThePublicationFolderIsAFile) {
  put("Wlan/a", "one");
  write_bytes(publication_, "in the way");
  const finished done = run();
  EXPECT_EQ(done.status, 1);
  EXPECT_NE(done.err.find(publication_), std::string::npos);
}

TEST_F(Publish, LeavesTheLastPublicationAloneWhenItRefuses) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  const auto before = tree(publication_);
  const std::string k_before = published(k_name);
  put("Wlan/a", "two");
  put("Wlan/z", std::string("\0two", 4));
  ASSERT_EQ(run().status, 6);
  EXPECT_EQ(tree(publication_), before);
  EXPECT_EQ(published(k_name), k_before);
}

class PublishUsage : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(PublishUsage, RefusesTheArguments) {
  const temp_dir dir;
  write_bytes(dir / "source/Wlan/a", "a");
  std::vector<std::string> args = {"publish", dir / "source", "--out", dir / "pub"};
  args.insert(args.end(), GetParam().begin(), GetParam().end());
  const finished done = run_zotconf(args);
  EXPECT_EQ(done.status, 2);
  EXPECT_NE(done.err, "");
  EXPECT_FALSE(exists(dir / "pub"));
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, PublishUsage,
    testing::Values(
        std::vector<std::string>{"--index", "a"}, std::vector<std::string>{"--cluster", "c"},
        std::vector<std::string>{"--index", "a", "--cluster", ""},
        std::vector<std::string>{"--index", "a", "--cluster", std::string(37, 'c')},
        std::vector<std::string>{"--index", "a", "--cluster", "c\n"},
        std::vector<std::string>{"--index", "", "--cluster", "c"},
        std::vector<std::string>{"--index", "..", "--cluster", "c"},
        std::vector<std::string>{"--index", "a/b", "--cluster", "c"},
        std::vector<std::string>{"--index", std::string(18, 'i'), "--cluster", "c"},
        std::vector<std::string>{"--index", "a", "--cluster", "c", "--subsys", "XP"},
        std::vector<std::string>{"--index", "a", "--cluster", "c", "--config-id", "no-uuid"},
        std::vector<std::string>{"--index", "a", "--cluster", "c", "--config-id",
                                 "00000000-0000-0000-0000-00000000000g"},
        std::vector<std::string>{"--index", "a", "--cluster", "c", "--firmware",
                                 std::string(512, 'f')},
        std::vector<std::string>{"--index", "a", "--cluster", "c", "--max-removed", "101%"},
        std::vector<std::string>{"--index", "a", "--cluster", "c", "--max-removed", ""},
        std::vector<std::string>{"--index", "a", "--cluster", "c", "--unknown"}));

TEST_F(Publish, AcceptsTheLongestArguments) {
  put("Wlan/a", "a");
  EXPECT_EQ(run_zotconf({"publish", source_, "--out", publication_, "--index", std::string(17, 'i'),
                         "--cluster", std::string(36, 'c'), "--firmware", std::string(511, 'f')})
                .status,
            0);
}

TEST(Program, AnswersHelpWithSuccess) {
  const finished done = run_zotconf({"publish", "--help"});
  EXPECT_EQ(done.status, 0);
  EXPECT_NE(done.out.find("Exit status:"), std::string::npos);
}

TEST(Program, RefusesACallWithoutACommand) {
  EXPECT_EQ(run_zotconf({}).status, 2);
}

}  // namespace
}  // namespace zot::test
