// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/publish.hpp"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "tests/tools/support/process.hpp"
#include "tools/model/manifest.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

const std::string k_name = "file/knowledge/AP/001122334455/latest/001122334455.k";
const std::string checksum_name = "file/knowledge/AP/001122334455/latest/001122334455.checksum";

class Publish : public testing::Test {
 protected:
  void put(const std::string &name, const std::string &bytes) const {
    write_bytes(source_ + "/" + name, bytes);
  }
  [[nodiscard]] finished run(const std::vector<std::string> &more = {}) const {
    return publish(source_, publication_, more);
  }
  [[nodiscard]] std::string published(const std::string &name) const {
    return read_bytes(publication_ + "/" + name);
  }
  [[nodiscard]] bool holds(const std::string &name) const {
    return exists(publication_ + "/" + name);
  }
  [[nodiscard]] zotconf::manifest k() const {
    return zotconf::parse_manifest(published(k_name)).value();
  }
  // Version that K names for an object, 0 for none.
  [[nodiscard]] uint64_t version(const std::string &category, const std::string &key) const {
    for (const auto &file : k().files) {
      if (file.category_name == category && file.key == key) {
        return file.version;
      }
    }
    return 0;
  }

  temp_dir dir_;
  std::string source_ = dir_ / "source";
  std::string publication_ = dir_ / "pub";
};

ino_t inode(const std::string &path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

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

TEST_F(Publish, GivesAChangedFileTheNextVersion) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "a"), 2U);
  EXPECT_EQ(published("config/Wlan/a/2"), "two");
}

TEST_F(Publish, KeepsTheFileOfTheVersionBefore) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(published("config/Wlan/a/1"), "one");
}

TEST_F(Publish, KeepsTheVersionOfAFileThatStayedTheSame) {
  put("Wlan/a", "one");
  put("Wlan/b", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "two");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "b"), 1U);
  EXPECT_FALSE(holds("config/Wlan/b/2"));
}

TEST_F(Publish, GivesAFileThatComesBackAHigherVersion) {
  put("Wlan/a", "one");
  put("Wlan/b", "one");
  ASSERT_EQ(run().status, 0);
  ::unlink((source_ + "/Wlan/b").c_str());
  ASSERT_EQ(run().status, 0);
  put("Wlan/b", "one");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(version("Wlan", "b"), 2U);
}

TEST_F(Publish, NeverReusesAVersionOfAnotherElement) {
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

TEST_F(Publish, CountsWhatItDidInOneLine) {
  put("Wlan/a", "one");
  put("Wlan/b", "one");
  put("Wlan/c", "one");
  ASSERT_EQ(run().status, 0);
  put("Wlan/a", "second");
  put("Wlan/d", "new");
  ::unlink((source_ + "/Wlan/c").c_str());
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
  EXPECT_EQ(version("Wlan", "a"), 2U);
}

TEST_F(Publish, LeavesNoTemporaryFile) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(tree(publication_),
            (std::vector<std::string>{".lock", "config/Wlan/a/1", checksum_name, k_name}));
}

TEST_F(Publish, PublishesAnEmptyConfiguration) {
  put("Wlan/a", "one");
  ASSERT_EQ(run().status, 0);
  ::unlink((source_ + "/Wlan/a").c_str());
  EXPECT_EQ(run().out, "published: 0 files, 0 new, 0 changed, 0 same, 1 removed, 0 bytes\n");
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

struct source_file {
  std::string test;
  std::string name;
  std::function<void(const std::string &path)> make;
  std::string why;
};

void PrintTo(const source_file &file, std::ostream *out) {
  *out << file.test;
}

void make_large(const std::string &path) {
  write_bytes(path, "x");
  ASSERT_EQ(::truncate(path.c_str(), off_t{1} << 31), 0);
}

// A name as a terminal may show it: what is no printable text is a question mark.
std::string shown(std::string path) {
  for (char &c : path) {
    c = c == '\n' || c == '\xff' ? '?' : c;
  }
  return path;
}

class PublishRefuses : public testing::TestWithParam<source_file> {};

TEST_P(PublishRefuses, TheFileByNameAndWritesNothing) {
  const temp_dir dir;
  const source_file &file = GetParam();
  const std::string path = dir / "source/" + file.name;
  write_bytes(dir / "source/Ap/good", "good");
  file.make(path);
  const finished done = publish(dir / "source", dir / "pub");
  EXPECT_EQ(done.status, 6);
  EXPECT_EQ(done.err, "zotconf: refused: " + shown(path) + ": " + file.why + "\n");
  EXPECT_FALSE(exists(dir / "pub"));
}

INSTANTIATE_TEST_SUITE_P(
    Files, PublishRefuses,
    testing::Values(
        source_file{"UnknownCategory", "Nonsense",
                    [](const std::string &path) { write_bytes(path + "/a", "a"); },
                    "unknown category"},
        source_file{"CategoryInOtherLetterCase", "WLAN",
                    [](const std::string &path) { write_bytes(path + "/a", "a"); },
                    "unknown category"},
        source_file{"FileOutsideACategory", "Wlan",
                    [](const std::string &path) { write_bytes(path, "a"); },
                    "is not in a category folder"},
        source_file{"EmptyFile", "Wlan/a", [](const std::string &path) { write_bytes(path, ""); },
                    "is empty"},
        source_file{"ZeroFirstByte", "Wlan/a",
                    [](const std::string &path) { write_bytes(path, std::string("\0a", 2)); },
                    "begins with a zero byte"},
        source_file{"KeyOf53Characters", "Wlan/" + std::string(53, 'k'),
                    [](const std::string &path) { write_bytes(path, "a"); },
                    "has a key over 52 characters"},
        source_file{"KeyWithANewline", "Wlan/a\nb",
                    [](const std::string &path) { write_bytes(path, "a"); },
                    "holds a control character"},
        source_file{"KeyThatIsNotUtf8", "Wlan/\xff",
                    [](const std::string &path) { write_bytes(path, "a"); }, "is not UTF-8"},
        source_file{"NestedFolder", "Wlan/a",
                    [](const std::string &path) { write_bytes(path + "/b", "a"); },
                    "is a folder; keys are files"},
        source_file{"SymbolicLink", "Wlan/a",
                    [](const std::string &path) {
                      write_bytes(path + "-not-a-link", "a");
                      ASSERT_EQ(::symlink("a-not-a-link", path.c_str()), 0);
                    },
                    "is not a regular file"},
        source_file{"Fifo", "Ap/fifo",
                    [](const std::string &path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); },
                    "is not a regular file"},
        source_file{"SizeOver31Bits", "Wlan/a", make_large, "is larger than 2147483647 bytes"}),
    [](const auto &tested) { return tested.param.test; });

class PublishAccepts : public testing::TestWithParam<std::string> {};

TEST_P(PublishAccepts, TheKey) {
  const temp_dir dir;
  write_bytes(dir / "source/Wlan/" + GetParam(), "a");
  EXPECT_EQ(publish(dir / "source", dir / "pub").status, 0);
  EXPECT_EQ(read_bytes(dir / "pub/config/Wlan/" + GetParam() + "/1"), "a");
}

INSTANTIATE_TEST_SUITE_P(Keys, PublishAccepts,
                         testing::Values(std::string(52, 'k'), "with blank",
                                         "k\xc3\xbc"
                                         "che",
                                         "a.b", "-", "\"quoted\"", "back\\slash"));

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
    testing::Values(std::vector<std::string>{"--index", "a"},
                    std::vector<std::string>{"--cluster", "c"},
                    std::vector<std::string>{"--index", "a", "--cluster", ""},
                    std::vector<std::string>{"--index", "a", "--cluster", std::string(37, 'c')},
                    std::vector<std::string>{"--index", "a", "--cluster", "c\n"},
                    std::vector<std::string>{"--index", "", "--cluster", "c"},
                    std::vector<std::string>{"--index", "..", "--cluster", "c"},
                    std::vector<std::string>{"--index", "a/b", "--cluster", "c"},
                    std::vector<std::string>{"--index", std::string(18, 'i'), "--cluster", "c"},
                    std::vector<std::string>{"--index", "a", "--cluster", "c", "--subsys", "XP"},
                    std::vector<std::string>{"--index", "a", "--cluster", "c", "--config-id",
                                             "no-uuid"},
                    std::vector<std::string>{"--index", "a", "--cluster", "c", "--config-id",
                                             "00000000-0000-0000-0000-00000000000g"},
                    std::vector<std::string>{"--index", "a", "--cluster", "c", "--firmware",
                                             std::string(512, 'f')},
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
