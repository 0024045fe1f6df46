// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/fleet.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"
#include "tests/tools/support/publishing.hpp"
#include "tests/tools/support/signing.hpp"
#include "tests/tools/support/terminal.hpp"
#include "tools/model/manifest.hpp"

namespace zot::test {
namespace {

std::string latest(const std::string &index, const std::string &suffix) {
  return "file/knowledge/AP/" + index + "/latest/" + index + suffix;
}

class Fleet : public testing::Test {
 protected:
  void put_common(const std::string &name, const std::string &bytes) const {
    write_bytes(fleet_ + "/common/" + name, bytes);
  }
  void put_own(const std::string &index, const std::string &name, const std::string &bytes) const {
    write_bytes(fleet_ + "/elements/" + index + "/" + name, bytes);
  }
  void add_element(const std::string &index) const {
    std::filesystem::create_directories(fleet_ + "/elements/" + index);
  }
  // Three elements: 0A with a file of its own, 0B with another file for a common name, and 0C.
  void put_fleet() const {
    put_common("Wlan/a", "common a");
    put_common("Zone/z", "common z");
    put_own("0A", "Ap/own", "own");
    put_own("0B", "Wlan/a", "other a");
    add_element("0C");
  }
  [[nodiscard]] std::vector<std::string> words(const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {"publish",    "--fleet",   fleet_, "--out",
                                     publication_, "--cluster", "c"};
    args.insert(args.end(), more.begin(), more.end());
    return args;
  }
  [[nodiscard]] finished run(const std::vector<std::string> &more = {}) const {
    return run_zotconf(words(more));
  }
  [[nodiscard]] std::string published(const std::string &name) const {
    return read_bytes(publication_ + "/" + name);
  }
  [[nodiscard]] std::string k(const std::string &index) const {
    return published(latest(index, ".k"));
  }
  // The entries of K as "Category/key/version".
  [[nodiscard]] std::vector<std::string> entries(const std::string &index) const {
    std::vector<std::string> result;
    const zotconf::manifest content = zotconf::parse_manifest(k(index)).value();
    for (const zotconf::published_file &file : content.files) {
      result.push_back(file.category_name + "/" + file.key + "/" + std::to_string(file.version));
    }
    std::ranges::sort(result);
    return result;
  }
  [[nodiscard]] uint64_t sequence(const std::string &index) const {
    return zotconf::parse_manifest(k(index)).value().sequence;
  }

  temp_dir dir_;
  std::string fleet_ = dir_ / "fleet";
  std::string publication_ = dir_ / "pub";
};

using names = std::vector<std::string>;

TEST_F(Fleet, GivesEachElementTheCommonFilesAndItsOwn) {
  put_fleet();
  const finished done = run();
  EXPECT_EQ(done.err, "");
  EXPECT_EQ(done.out,
            "published: 3 elements, 3 published, 0 unchanged, 4 files written, 26 bytes\n");
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(entries("0A"), (names{"Ap/own/1", "Wlan/a/1", "Zone/z/1"}));
  EXPECT_EQ(entries("0B"), (names{"Wlan/a/2", "Zone/z/1"}));
  EXPECT_EQ(entries("0C"), (names{"Wlan/a/1", "Zone/z/1"}));
  EXPECT_EQ(published("config/Wlan/a/2"), "other a");
}

TEST_F(Fleet, AnnouncesEachKByItsChecksum) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  for (const std::string index : {"0A", "0B", "0C"}) {
    EXPECT_EQ(published(latest(index, ".checksum")), sha256_hex(k(index)) + "\n");
  }
}

TEST_F(Fleet, LeavesNoTemporaryFile) {
  put_common("Wlan/a", "a");
  add_element("0A");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(tree(publication_),
            (names{".lock", "config/Wlan/a/1", latest("0A", ".checksum"), latest("0A", ".k")}));
}

// The sequence is a time, so it is left out of the comparison.
std::string without_sequence(const std::string &k) {
  zotconf::manifest content = zotconf::parse_manifest(k).value();
  content.sequence = 1;
  return zotconf::render_manifest(content);
}

TEST_F(Fleet, PublishesWhatOneElementAfterTheOtherWouldGet) {
  const std::string merged = dir_ / "merged";
  const std::string other = dir_ / "other";
  for (const std::string change : {"first", "second", "first"}) {
    put_common("Wlan/a", "common " + change);
    put_common("Zone/z", "common z");
    put_own("0A", "Wlan/a", "own " + change);
    put_own("0B", "Wlan/b", change);
    put_own("0C", "removed", "Zone/z\n");
    put_own("0C", "Wlan/a", "common first");
    ASSERT_EQ(run().status, 0);
    for (const std::string index : {"0A", "0B", "0C"}) {
      std::filesystem::remove_all(merged);
      std::filesystem::copy(fleet_ + "/common", merged, std::filesystem::copy_options::recursive);
      std::filesystem::copy(fleet_ + "/elements/" + index, merged,
                            std::filesystem::copy_options::recursive |
                                std::filesystem::copy_options::overwrite_existing);
      if (std::filesystem::remove(merged + "/removed")) {
        std::filesystem::remove(merged + "/Zone/z");
      }
      ASSERT_EQ(run_zotconf({"publish", merged, "--out", other, "--index", index, "--cluster", "c"})
                    .status,
                0);
      EXPECT_EQ(without_sequence(k(index)),
                without_sequence(read_bytes(other + "/" + latest(index, ".k"))))
          << change << " " << index;
    }
  }
  EXPECT_EQ(tree(publication_), tree(other));
}

TEST_F(Fleet, IsUnchangedForTheCommandThatPublishesOneElement) {
  put_common("Wlan/a", "a");
  put_own("0A", "Zone/z", "z");
  ASSERT_EQ(run().status, 0);
  write_bytes(dir_ / "merged/Wlan/a", "a");
  write_bytes(dir_ / "merged/Zone/z", "z");
  const finished one = run_zotconf(
      {"publish", dir_ / "merged", "--out", publication_, "--index", "0a", "--cluster", "c"});
  EXPECT_EQ(one.out, "unchanged: 2 files, 0 new, 0 changed, 2 same, 0 removed, 2 bytes\n");
}

TEST_F(Fleet, KeepsAnUnchangedKAndItsFile) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  const std::string before = k("0A");
  const ino_t file = inode(publication_ + "/" + latest("0A", ".k"));
  put_own("0B", "Wlan/a", "third a");
  EXPECT_EQ(run().out,
            "published: 3 elements, 1 published, 2 unchanged, 1 files written, 7 bytes\n");
  EXPECT_EQ(k("0A"), before);
  EXPECT_EQ(inode(publication_ + "/" + latest("0A", ".k")), file);
}

TEST_F(Fleet, RaisesTheSequenceOfAChangedK) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  const uint64_t before = sequence("0B");
  put_own("0B", "Wlan/a", "third a");
  ASSERT_EQ(run().status, 0);
  EXPECT_GT(sequence("0B"), before);
}

TEST_F(Fleet, WritesNothingWhenNothingChanged) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  const auto before = snapshot(publication_);
  EXPECT_EQ(run().out,
            "unchanged: 3 elements, 0 published, 3 unchanged, 0 files written, 0 bytes\n");
  EXPECT_EQ(snapshot(publication_), before);
}

TEST_F(Fleet, GivesEveryElementAChangedCommonFile) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  put_common("Zone/z", "new z");
  EXPECT_EQ(run().out,
            "published: 3 elements, 3 published, 0 unchanged, 1 files written, 5 bytes\n");
  EXPECT_EQ(entries("0B"), (names{"Wlan/a/2", "Zone/z/2"}));
  EXPECT_EQ(entries("0C"), (names{"Wlan/a/1", "Zone/z/2"}));
}

// Elements that were published one by one may have other versions of the same bytes.
TEST_F(Fleet, KeepsTheVersionThatAnElementHas) {
  put_common("Wlan/a", "a");
  add_element("0A");
  add_element("0B");
  write_bytes(publication_ + "/config/Wlan/a/1", "a");
  ASSERT_EQ(run().status, 0);
  std::string other = k("0B");
  other.replace(other.find("/Wlan/a/1"), 9, "/Wlan/a/7");
  write_bytes(publication_ + "/config/Wlan/a/7", "a");
  write_bytes(publication_ + "/" + latest("0B", ".k"), other);
  ASSERT_EQ(run({"--firmware", "2"}).status, 0);
  EXPECT_EQ(entries("0A"), names{"Wlan/a/1"});
  EXPECT_EQ(entries("0B"), names{"Wlan/a/7"});
}

TEST_F(Fleet, LeavesElementsOutsideTheFleetAlone) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  const std::string before = k("0C");
  std::filesystem::remove_all(fleet_ + "/elements/0C");
  put_common("Zone/z", "new z");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(k("0C"), before);
}

TEST_F(Fleet, TakesWhatIsRemovedFromCommon) {
  put_fleet();
  put_own("0A", "removed", "Zone/z\n\nWlan/a");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(entries("0A"), names{"Ap/own/1"});
  EXPECT_EQ(entries("0B"), (names{"Wlan/a/1", "Zone/z/1"}));
  EXPECT_EQ(entries("0C"), (names{"Wlan/a/2", "Zone/z/1"}));
}

TEST_F(Fleet, NeedsNoCommonFiles) {
  put_own("0A", "Wlan/a", "a");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(entries("0A"), names{"Wlan/a/1"});
}

TEST_F(Fleet, NamesAnElementByItsUpperCaseIndexAndItsSubsystem) {
  put_own("aa:bb", "Wlan/a", "a");
  ASSERT_EQ(run({"--subsys", "DP"}).status, 0);
  EXPECT_TRUE(exists(publication_ + "/file/knowledge/DP/AA:BB/latest/AA:BB.k"));
}

TEST_F(Fleet, StatesTheMetadataInEveryK) {
  put_fleet();
  ASSERT_EQ(
      run({"--config-id", "00000000-1111-2222-3333-444444444444", "--firmware", "7.1"}).status, 0);
  for (const std::string index : {"0A", "0B", "0C"}) {
    const auto content = zotconf::parse_manifest(k(index)).value();
    EXPECT_EQ(content.cluster, "c");
    EXPECT_EQ(content.config_id, "00000000-1111-2222-3333-444444444444");
    EXPECT_EQ(content.firmware, "7.1");
    EXPECT_EQ(content.who.index, index);
  }
}

TEST_F(Fleet, RestoresADamagedFileForEveryElementThatHasIt) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  write_bytes(publication_ + "/config/Wlan/a/1", "cOmmon a");
  EXPECT_EQ(run().out,
            "published: 3 elements, 2 published, 1 unchanged, 1 files written, 8 bytes\n");
  EXPECT_EQ(published("config/Wlan/a/1"), "common a");
}

// From this time prune computes how long no K has named the file.
TEST_F(Fleet, GivesAFileThatAKDropsTheTimeOfNow) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  const auto long_ago = std::filesystem::file_time_type::clock::now() - std::chrono::hours(24);
  for (const std::string name : {"Wlan/a/1", "Zone/z/1"}) {
    std::filesystem::last_write_time(publication_ + "/config/" + name, long_ago);
  }
  put_common("Zone/z", "new z");
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(std::filesystem::last_write_time(publication_ + "/config/Wlan/a/1"), long_ago);
  EXPECT_NE(std::filesystem::last_write_time(publication_ + "/config/Zone/z/1"), long_ago);
}

TEST_F(Fleet, WritesNothingInADryRun) {
  put_fleet();
  const finished done = run({"--dry-run"});
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.out,
            "INDEX  NEW  CHANGED  SAME  REMOVED\n"
            "0A       3        0     0        0\n"
            "0B       2        0     0        0\n"
            "0C       2        0     0        0\n"
            "would publish: 3 elements, 3 to publish, 0 unchanged, 4 files to write, 26 bytes\n");
  EXPECT_FALSE(exists(publication_));
}

TEST_F(Fleet, SignsEveryK) {
  const authority ca;
  ca.issue("publisher");
  put_fleet();
  EXPECT_EQ(run(ca.signs_as("publisher")).out,
            "published: 3 elements, 3 published, 0 unchanged, 4 files written, 26 bytes, signed\n");
  for (const std::string index : {"0A", "0B", "0C"}) {
    EXPECT_TRUE(ca.accepts(publication_ + "/" + latest(index, ".k"))) << index;
  }
}

TEST_F(Fleet, SignsAnUnchangedKAsItIs) {
  const authority ca;
  ca.issue("publisher");
  put_fleet();
  ASSERT_EQ(run().status, 0);
  const std::string before = k("0A");
  EXPECT_EQ(run(ca.signs_as("publisher")).out,
            "unchanged: 3 elements, 0 published, 3 unchanged, 0 files written, 0 bytes, signed\n");
  EXPECT_EQ(k("0A"), before);
  EXPECT_TRUE(ca.accepts(publication_ + "/" + latest("0A", ".k")));
}

TEST_F(Fleet, RemovesTheSignaturesOfAnUnsignedPublicationWithOneWarning) {
  const authority ca;
  ca.issue("publisher");
  put_fleet();
  ASSERT_EQ(run(ca.signs_as("publisher")).status, 0);
  put_common("Zone/z", "new z");
  EXPECT_EQ(run().err,
            "zotconf: warning: 0A and 2 other elements: the previous K was signed, the new one is "
            "not\ntry: zotconf sign --help\n");
  EXPECT_FALSE(exists(publication_ + "/" + latest("0B", ".k.p7s")));
}

TEST_F(Fleet, WarnsOnceWhenTheClusterChanges) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  EXPECT_EQ(run({"--cluster", "d"}).status, 2) << "only one cluster";
  auto args = words();
  args.back() = "d";
  EXPECT_EQ(run_zotconf(args).err,
            "zotconf: warning: 0A and 2 other elements: the cluster changes to \"d\": elements "
            "mark every entry as modified\n");
}

TEST_F(Fleet, ReplacesADamagedKAndSaysSo) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  write_bytes(publication_ + "/" + latest("0B", ".k"), "{");
  const finished done = run();
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.err, "zotconf: warning: 0B: the previous K is damaged and is replaced\n");
  EXPECT_EQ(entries("0B"), (names{"Wlan/a/2", "Zone/z/1"}));
}

TEST_F(Fleet, PrintsItsResultAsJson) {
  put_fleet();
  put_own("0A", ".gitkeep", "");
  const json_value told(run({"--json"}).out);
  EXPECT_EQ(told["result"].text(), "published");
  EXPECT_EQ(told["elements"].number(), 3);
  EXPECT_EQ(told["published"].number(), 3);
  EXPECT_EQ(told["unchanged"].number(), 0);
  EXPECT_EQ(told["written"].number(), 4);
  EXPECT_EQ(told["bytes"].number(), 26);
  EXPECT_FALSE(told["signed"].flag());
  EXPECT_EQ(told["refused"].size(), 0);
  EXPECT_EQ(told["left_out_total"].number(), 1);
  EXPECT_EQ(told["left_out"][0].text(), fleet_ + "/elements/0A/.gitkeep");
  const json_value again(run({"--json"}).out);
  EXPECT_EQ(again["result"].text(), "unchanged");
  EXPECT_EQ(again["unchanged"].number(), 3);
}

TEST_F(Fleet, PrintsTheChangesOfADryRunAsJson) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  put_own("0C", "removed", "Zone/z\n");
  put_own("0C", "Ap/own", "new");
  const json_value told(run({"--json", "--dry-run"}).out);
  EXPECT_EQ(told["result"].text(), "would_publish");
  ASSERT_EQ(told["changes"].size(), 1);
  EXPECT_EQ(told["changes"][0]["index"].text(), "0C");
  EXPECT_EQ(told["changes"][0]["new"].number(), 1);
  EXPECT_EQ(told["changes"][0]["same"].number(), 1);
  EXPECT_EQ(told["changes"][0]["removed"].number(), 1);
  EXPECT_EQ(told["changes"][0]["changed"].number(), 0);
}

TEST_F(Fleet, ListsAllRefusedElementsAndAnnouncesNone) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  const auto before = snapshot(publication_);
  put_common("Zone/z", "new z");
  put_own("0A", "Wlan/empty", "");
  put_own("0B", "removed", "Wlan/a\nWlan/none\n");
  put_own("0C", "removed", "Zone/z\nWlan/a\n");
  put_own("0C", "Ap/new", "new");
  const finished done = run();
  EXPECT_EQ(done.status, 6);
  EXPECT_EQ(done.out, "");
  EXPECT_EQ(done.err, "zotconf: refused: " + fleet_ + "/elements/0A/Wlan/empty: is empty\n" +
                          "zotconf: refused: " + fleet_ +
                          "/elements/0B/removed: \"Wlan/none\" is not a file of common\n" +
                          "zotconf: refused: " + fleet_ +
                          "/elements/0C: lacks 2 of the 2 entries published before, more than "
                          "50%; see --max-removed\n");
  EXPECT_EQ(snapshot(publication_), before);
}

TEST_F(Fleet, PrintsTheRefusedElementsAsJson) {
  put_fleet();
  put_own("0B", "Nonsense/a", "a");
  const finished done = run({"--json"});
  EXPECT_EQ(done.status, 6);
  const json_value told(done.out);
  EXPECT_EQ(told["result"].text(), "refused");
  EXPECT_EQ(told["elements"].number(), 3);
  EXPECT_EQ(told["published"].number(), 0);
  EXPECT_EQ(told["refused_total"].number(), 1);
  EXPECT_EQ(told["refused"][0]["index"].text(), "0B");
  EXPECT_EQ(told["refused"][0]["reason"].text(),
            fleet_ + "/elements/0B/Nonsense: unknown category");
  EXPECT_FALSE(exists(publication_));
}

TEST_F(Fleet, ListsTwentyRefusedElementsAndCountsTheOthers) {
  for (int i = 10; i < 33; ++i) {
    put_own(std::to_string(i), "Wlan/a", "");
  }
  const finished done = run();
  EXPECT_EQ(count_of(": is empty\n", done.err), 20U);
  EXPECT_TRUE(done.err.ends_with("\nzotconf: refused: and 3 more\n")) << done.err;
  const json_value told(run({"--json"}).out);
  EXPECT_EQ(told["refused_total"].number(), 23);
  EXPECT_EQ(told["refused"].size(), 20);
}

TEST_F(Fleet, RemovesAsManyEntriesAsItIsAllowed) {
  put_fleet();
  ASSERT_EQ(run().status, 0);
  put_own("0C", "removed", "Zone/z\n");
  EXPECT_EQ(run({"--max-removed", "49%"}).status, 6);
  EXPECT_EQ(run({"--max-removed", "50%"}).status, 0);
}

TEST_F(Fleet, RefusesAFileThatItMayNotRead) {
  put_fleet();
  std::filesystem::permissions(dir_.path(), std::filesystem::perms::all);
  ASSERT_EQ(::chmod((fleet_ + "/elements/0B/Wlan/a").c_str(), 0), 0);
  const finished done = run_zotconf_as_user(words(), {});
  EXPECT_EQ(done.status, 6) << done.err;
  EXPECT_NE(done.err.find("refused: cannot open " + fleet_ + "/elements/0B/Wlan/a"),
            std::string::npos)
      << done.err;
  EXPECT_FALSE(exists(publication_));
}

TEST_F(Fleet, ShowsProgressOnATerminal) {
  put_common("Wlan/a", "a");
  for (int i = 0; i < 3000; ++i) {
    add_element("E" + std::to_string(i));
  }
  const finished done = run_on_terminal(words(), {{"TERM", "xterm"}});
  EXPECT_EQ(done.status, 0);
  EXPECT_NE(done.out.find(" of 3000 elements"), std::string::npos) << done.out;
}

struct bad_fleet {
  std::string test;
  std::function<void(const std::string &fleet)> make;
  std::string path;
  std::string why;
};

void PrintTo(const bad_fleet &bad, std::ostream *out) {
  *out << bad.test;
}

class FleetRefused : public testing::TestWithParam<bad_fleet> {};

TEST_P(FleetRefused, ByNameAndWritesNothing) {
  const temp_dir dir;
  const std::string fleet = dir / "fleet";
  write_bytes(fleet + "/common/Wlan/a", "a");
  write_bytes(fleet + "/elements/0A/Wlan/b", "b");
  GetParam().make(fleet);
  const finished done =
      run_zotconf({"publish", "--fleet", fleet, "--out", dir / "pub", "--cluster", "c"});
  EXPECT_EQ(done.status, 6);
  EXPECT_EQ(done.out, "");
  EXPECT_NE(done.err.find("zotconf: refused: " + fleet + GetParam().path + ": " + GetParam().why),
            std::string::npos)
      << done.err;
  EXPECT_FALSE(exists(dir / "pub"));
}

INSTANTIATE_TEST_SUITE_P(
    Fleets, FleetRefused,
    testing::Values(
        bad_fleet{
            "IndexWithABlank",
            [](const std::string &fleet) { write_bytes(fleet + "/elements/0 B/Wlan/a", "a"); },
            "/elements/0 B", "the name is no index: it must be 1 to 17 characters"},
        bad_fleet{"IndexThatIsTooLong",
                  [](const std::string &fleet) {
                    write_bytes(fleet + "/elements/" + std::string(18, '1') + "/Wlan/a", "a");
                  },
                  "/elements/" + std::string(18, '1'), "the name is no index"},
        bad_fleet{"IndexInTwoLetterCases",
                  [](const std::string &fleet) { write_bytes(fleet + "/elements/0a/Wlan/a", "a"); },
                  "/elements/0a", "another folder is the same element, 0A"},
        bad_fleet{"ElementWithoutFiles",
                  [](const std::string &fleet) {
                    write_bytes(fleet + "/elements/0B/removed", "Wlan/a\n");
                  },
                  "/elements/0B", "the element has no file to publish"},
        bad_fleet{"RemovedFileThatIsNotInCommon",
                  [](const std::string &fleet) {
                    write_bytes(fleet + "/elements/0A/removed", "Wlan/b\n");
                  },
                  "/elements/0A/removed", "\"Wlan/b\" is not a file of common"},
        bad_fleet{
            "RemovedLineWithoutAKey",
            [](const std::string &fleet) { write_bytes(fleet + "/elements/0A/removed", "Wlan\n"); },
            "/elements/0A/removed", "\"Wlan\" is not a file of common"},
        bad_fleet{"RemovedThatIsAFolder",
                  [](const std::string &fleet) {
                    write_bytes(fleet + "/elements/0A/removed/a", "Wlan/a\n");
                  },
                  "/elements/0A/removed", "is not a regular file"},
        bad_fleet{"BadNameInAnElement",
                  [](const std::string &fleet) {
                    write_bytes(fleet + "/elements/0A/Wlan/" + std::string(53, 'k'), "a");
                  },
                  "/elements/0A/Wlan/" + std::string(53, 'k'), "has a key over 52 characters"},
        bad_fleet{"BadNameInCommon",
                  [](const std::string &fleet) { write_bytes(fleet + "/common/WLAN/a", "a"); },
                  "/common/WLAN", "unknown category"},
        bad_fleet{"StrayFileInAnElement",
                  [](const std::string &fleet) { write_bytes(fleet + "/elements/0A/notes", "x"); },
                  "/elements/0A/notes", "is not in a category folder"},
        bad_fleet{"StrayFileBesideTheElements",
                  [](const std::string &fleet) { write_bytes(fleet + "/elements/notes", "x"); },
                  "/elements/notes", "is not a folder"},
        bad_fleet{"MisspeltFolder",
                  [](const std::string &fleet) { write_bytes(fleet + "/Common/Wlan/a", "x"); },
                  "/Common", "is neither common nor elements"},
        bad_fleet{"ElementThatIsALink",
                  [](const std::string &fleet) {
                    ASSERT_EQ(::symlink("0A", (fleet + "/elements/0B").c_str()), 0);
                  },
                  "/elements/0B", "is not a folder"},
        bad_fleet{"CommonThatIsALink",
                  [](const std::string &fleet) {
                    std::filesystem::rename(fleet + "/common", fleet + "-common");
                    ASSERT_EQ(::symlink("../fleet-common", (fleet + "/common").c_str()), 0);
                  },
                  "/common", "is not a folder"},
        bad_fleet{
            "NoElements",
            [](const std::string &fleet) { std::filesystem::remove_all(fleet + "/elements/0A"); },
            "/elements", "contains no element"},
        bad_fleet{
            "NoFolderElements",
            [](const std::string &fleet) { std::filesystem::remove_all(fleet + "/elements"); }, "",
            "contains no folder elements"}),
    [](const auto &tested) { return tested.param.test; });

TEST_F(Fleet, RefusesAPublicationFolderInside) {
  put_fleet();
  for (const std::string place : {"/pub", "/common/pub", "/elements/0A/pub", ""}) {
    const auto before = tree(fleet_);
    const finished done =
        run_zotconf({"publish", "--fleet", fleet_, "--out", fleet_ + place, "--cluster", "c"});
    EXPECT_EQ(done.status, 6) << place;
    EXPECT_NE(done.err.find("is or points into the folder to publish"), std::string::npos)
        << done.err;
    EXPECT_EQ(tree(fleet_), before);
  }
}

TEST_F(Fleet, TellsNothingElseOfElementsWhenCommonIsRefused) {
  put_fleet();
  put_common("Wlan/empty", "");
  put_own("0C", "removed", "Wlan/a\n");
  EXPECT_EQ(run().err, "zotconf: refused: " + fleet_ + "/common/Wlan/empty: is empty\n");
}

class FleetUsage : public testing::TestWithParam<names> {};

TEST_P(FleetUsage, RefusesTheArguments) {
  const temp_dir dir;
  write_bytes(dir / "source/Wlan/a", "a");
  write_bytes(dir / "fleet/elements/0A/Wlan/a", "a");
  names args = {"publish", "--out", dir / "pub", "--cluster", "c"};
  for (const std::string &word : GetParam()) {
    args.push_back(word == "SRC" ? dir / "source" : word == "DIR" ? dir / "fleet" : word);
  }
  const finished done = run_zotconf(args);
  EXPECT_EQ(done.status, 2) << done.out;
  EXPECT_NE(done.err, "");
  EXPECT_FALSE(exists(dir / "pub"));
}

INSTANTIATE_TEST_SUITE_P(Arguments, FleetUsage,
                         testing::Values(names{}, names{"--index", "0A"}, names{"SRC"},
                                         names{"SRC", "--fleet", "DIR"},
                                         names{"--fleet", "DIR", "--index", "0A"},
                                         names{"--fleet", "DIR", "--allow-empty"},
                                         names{"--fleet", "DIR/none"}));

}  // namespace
}  // namespace zot::test
