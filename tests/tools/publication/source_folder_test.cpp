// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/source_folder.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"

namespace zot::test {
namespace {

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

// A name as printed on a terminal, with a question mark for each byte that is not printable.
std::string shown(std::string path) {
  for (char &c : path) {
    c = c == '\n' || c == '\xff' ? '?' : c;
  }
  return path;
}

class SourceRefused : public testing::TestWithParam<source_file> {};

TEST_P(SourceRefused, TheFileByNameAndWritesNothing) {
  const temp_dir dir;
  const source_file &file = GetParam();
  const std::string path = dir / "source/" + file.name;
  write_bytes(dir / "source/Ap/good", "good");
  file.make(path);
  const finished done = publish(dir / "source", dir / "pub");
  EXPECT_EQ(done.status, 6);
  const std::string refused = "zotconf: refused: " + shown(path) + ": " + file.why + "\n";
  const bool is_of_a_category = file.why.find("categor") != std::string::npos;
  EXPECT_EQ(done.err, refused + (is_of_a_category ? "try: zotconf categories\n" : ""));
  EXPECT_FALSE(exists(dir / "pub"));
}

INSTANTIATE_TEST_SUITE_P(
    Files, SourceRefused,
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
                    "contains a control character"},
        source_file{"KeyThatIsNotUtf8", "Wlan/\xff",
                    [](const std::string &path) { write_bytes(path, "a"); }, "is not UTF-8"},
        source_file{"NestedFolder", "Wlan/a",
                    [](const std::string &path) { write_bytes(path + "/b", "a"); },
                    "is a folder; a key must be a file"},
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

class SourceAccepted : public testing::TestWithParam<std::string> {};

TEST_P(SourceAccepted, TheKey) {
  const temp_dir dir;
  write_bytes(dir / "source/Wlan/" + GetParam(), "a");
  EXPECT_EQ(publish(dir / "source", dir / "pub").status, 0);
  EXPECT_EQ(read_bytes(dir / "pub/config/Wlan/" + GetParam() + "/1"), "a");
}

INSTANTIATE_TEST_SUITE_P(Keys, SourceAccepted,
                         testing::Values(std::string(52, 'k'), "with blank",
                                         "k\xc3\xbc"
                                         "che",
                                         "a.b", "-", "\"quoted\"", "back\\slash"));

class SourceLeavesOut : public testing::TestWithParam<std::string> {};

TEST_P(SourceLeavesOut, TheNameAndTellsIt) {
  const temp_dir dir;
  write_bytes(dir / "source/Wlan/a", "a");
  write_bytes(dir / ("source/" + GetParam()), "");
  const finished done = publish(dir / "source", dir / "pub");
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.err, "zotconf: skipped: " + dir.path() + "/source/" + GetParam() + "\n");
  EXPECT_EQ(tree(dir / "pub/config"), std::vector<std::string>{"Wlan/a/1"});
}

INSTANTIATE_TEST_SUITE_P(Names, SourceLeavesOut,
                         testing::Values("Wlan/a~", "Wlan/.a", "Wlan/a.swp", "Wlan/.a.swp",
                                         "notes~", ".hidden", "session.swp"));

TEST(Source, LeavesAHiddenFolderOutAsAWhole) {
  const temp_dir dir;
  write_bytes(dir / "source/Wlan/a", "a");
  write_bytes(dir / "source/.git/HEAD", "x");
  const json_value told(publish(dir / "source", dir / "pub", {"--json"}).out);
  ASSERT_EQ(told["left_out"].size(), 1);
  EXPECT_EQ(told["left_out"][0].text(), dir / "source/.git");
}

TEST(Source, IsEmptyWhenAllOfItIsLeftOut) {
  const temp_dir dir;
  write_bytes(dir / "source/Wlan/a~", "a");
  EXPECT_EQ(publish(dir / "source", dir / "pub").status, 6);
  EXPECT_FALSE(exists(dir / "pub"));
}

// A publication folder, relative to the test's folder, and a function that prepares it.
struct place {
  std::string test;
  std::string publication;
  std::function<void(const temp_dir &dir)> make = [](const temp_dir & /*dir*/) {};
};

void PrintTo(const place &where, std::ostream *out) {
  *out << where.test;
}

void link_to(const std::string &target, const std::filesystem::path &link) {
  std::filesystem::create_directories(link.parent_path());
  std::filesystem::create_symlink(target, link);
}

class PublicationInTheWay : public testing::TestWithParam<place> {};

TEST_P(PublicationInTheWay, IsRefused) {
  const temp_dir dir;
  write_bytes(dir / "source/Wlan/a", "a");
  GetParam().make(dir);
  const auto before = tree(dir.path());
  const finished done = publish(dir / "source", dir / GetParam().publication);
  EXPECT_EQ(done.status, 6);
  EXPECT_NE(done.err.find("zotconf: refused: "), std::string::npos) << done.err;
  EXPECT_EQ(tree(dir.path()), before);
}

INSTANTIATE_TEST_SUITE_P(
    Places, PublicationInTheWay,
    testing::Values(place{"TheSource", "source"}, place{"InTheSource", "source/pub"},
                    place{"InACategory", "source/Wlan/deep/pub"},
                    place{"TheSourceByADetour", "source/Wlan/../../source"},
                    place{"TheSourceThroughALink", "link",
                          [](const temp_dir &dir) { link_to(dir / "source", dir / "link"); }},
                    place{"InTheSourceThroughALink", "link/more/pub",
                          [](const temp_dir &dir) { link_to(dir / "source", dir / "link"); }},
                    place{"FilesLinkedIntoTheSource", "pub",
                          [](const temp_dir &dir) { link_to(dir / "source", dir / "pub/config"); }},
                    place{"KLinkedIntoTheSource", "pub",
                          [](const temp_dir &dir) {
                            link_to(dir / "source/Wlan", dir / "pub/file");
                          }}),
    [](const auto &tested) { return tested.param.test; });

TEST(Source, IsNoPartOfThePublication) {
  for (const std::string source : {"pub/config", "pub/config/site", "pub/file/site"}) {
    const temp_dir dir;
    write_bytes(dir / (source + "/Wlan/a"), "a");
    EXPECT_EQ(publish(dir / source, dir / "pub").status, 6) << source;
    EXPECT_EQ(tree(dir.path()), std::vector<std::string>{source + "/Wlan/a"});
  }
}

TEST(Source, MayLieBesideWhatIsPublished) {
  const temp_dir dir;
  write_bytes(dir / "pub/source/Wlan/a", "a");
  EXPECT_EQ(publish(dir / "pub/source", dir / "pub").status, 0);
}

TEST(Source, MayBeALink) {
  const temp_dir dir;
  write_bytes(dir / "real/Wlan/a", "a");
  link_to("real", dir / "source");
  EXPECT_EQ(publish(dir / "source", dir / "pub").status, 0);
}

}  // namespace
}  // namespace zot::test
