// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/wave.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"
#include "tests/tools/support/publishing.hpp"
#include "tests/tools/support/signing.hpp"
#include "tools/model/manifest.hpp"
#include "tools/publication/source_folder.hpp"

namespace zot::test {
namespace {

using names = std::vector<std::string>;
using zotconf::wave;

// What `printf %s INDEX | sha256sum` prints begins with
//   0A 03a51bd6760f743e   0B 8a4f56aa3f296bd0   0C 92e189907ccbcfe7   0E 497add7a3f2750c4
//   AA:BB 17b07c120247165c
TEST(Wave, TakesTheIndexesWhoseChecksumIsBelowTheShare) {
  EXPECT_EQ(zotconf::smallest_share_with("0A"), 14239U);
  EXPECT_EQ(zotconf::smallest_share_with("0B"), 540274U);
  EXPECT_EQ(zotconf::smallest_share_with("0C"), 573754U);
  EXPECT_EQ(zotconf::smallest_share_with("0E"), 287032U);
  EXPECT_EQ(zotconf::smallest_share_with("AA:BB"), 92537U);
  EXPECT_FALSE(wave("1.4238%").contains("0A"));
  EXPECT_TRUE(wave("1.4239%").contains("0A"));
  EXPECT_FALSE(wave("54%").contains("0B"));
  EXPECT_TRUE(wave("55%").contains("0B"));
}

names chosen(const std::string &share, const names &from) {
  const wave tested(share);
  names result;
  std::ranges::copy_if(from, std::back_inserter(result),
                       [&](const std::string &index) { return tested.contains(index); });
  return result;
}

names many_indexes() {
  names indexes;
  for (int i = 0; i < 20000; ++i) {
    indexes.push_back("0" + std::to_string(100000 + i));
  }
  return indexes;
}

TEST(Wave, IsContainedInALargerOne) {
  names before;
  for (const std::string share : {"0.1%", "0.5%", "1%", "7%", "50%", "99%", "100%"}) {
    const names now = chosen(share, many_indexes());
    EXPECT_GT(now.size(), before.size()) << share;
    EXPECT_TRUE(std::ranges::includes(now, before)) << share;
    before = now;
  }
  EXPECT_EQ(before, many_indexes());
}

TEST(Wave, IsAboutAsLargeAsItsShare) {
  EXPECT_NEAR(static_cast<double>(chosen("1%", many_indexes()).size()), 200, 60);
  EXPECT_NEAR(static_cast<double>(chosen("25%", many_indexes()).size()), 5000, 300);
}

TEST(Wave, IsAListInAnyLetterCase) {
  const wave listed("0b,aa:Bb,0B");
  EXPECT_TRUE(listed.contains("0B"));
  EXPECT_TRUE(listed.contains("AA:BB"));
  EXPECT_FALSE(listed.contains("0A"));
}

TEST(Wave, IsAFileWithCommentsAndEmptyLines) {
  const temp_dir dir;
  write_bytes(dir / "list", "# the first ones\n\n0a\n#0C\nAA:BB");
  const wave listed("@" + dir / "list");
  EXPECT_TRUE(listed.contains("0A"));
  EXPECT_TRUE(listed.contains("AA:BB"));
  EXPECT_FALSE(listed.contains("0C"));
}

TEST(Wave, IsAFileOfAnEditorThatEndsLinesWithTwoCharacters) {
  const temp_dir dir;
  write_bytes(dir / "list", "# first\r\n\r\n0A\r\n0B\r\n");
  const wave listed("@" + dir / "list");
  EXPECT_TRUE(listed.contains("0A"));
  EXPECT_TRUE(listed.contains("0B"));
}

TEST(Wave, RefusesAFileThatListsNoElementOrAWrongOne) {
  const temp_dir dir;
  write_bytes(dir / "empty", "# none\n\n");
  write_bytes(dir / "wrong", "0A\n0 B\n");
  for (const std::string name : {"empty", "wrong", "absent"}) {
    EXPECT_THROW(wave("@" + dir / name), std::runtime_error) << name;
  }
}

// A fleet of four elements, of which the shares take 0A, then 0E, 0B and 0C.
class FleetWave : public testing::Test {
 protected:
  FleetWave() {
    put("common/Wlan/a", "common a");
    put("common/Zone/z", "common z");
    for (const std::string index : {"0A", "0B", "0C", "0e"}) {
      put("elements/" + index + "/Ap/own", "own " + index);
    }
  }
  void put(const std::string &name, const std::string &bytes) const {
    write_bytes(fleet_ + "/" + name, bytes);
  }
  [[nodiscard]] finished run(const names &more = {}) const {
    names args = {"publish", "--fleet", fleet_, "--out", publication_, "--cluster", "c"};
    args.insert(args.end(), more.begin(), more.end());
    return run_zotconf(args);
  }
  [[nodiscard]] finished run_wave(const std::string &part, const names &more = {}) const {
    names args = {"--wave", part};
    args.insert(args.end(), more.begin(), more.end());
    return run(args);
  }
  // The elements that have a K, in their order.
  [[nodiscard]] names published() const {
    names result;
    for (const std::string index : {"0A", "0B", "0C", "0E"}) {
      if (exists(folder_of(index) + index + ".k")) {
        result.push_back(index);
      }
    }
    return result;
  }
  [[nodiscard]] std::string folder_of(const std::string &index) const {
    return publication_ + "/file/knowledge/AP/" + index + "/latest/";
  }
  [[nodiscard]] zotconf::manifest k(const std::string &index) const {
    return zotconf::parse_manifest(read_bytes(folder_of(index) + index + ".k")).value();
  }

  temp_dir dir_;
  std::string fleet_ = dir_ / "fleet";
  std::string publication_ = dir_ / "pub";
};

TEST_F(FleetWave, PublishesAShareOfTheElements) {
  const finished done = run_wave("30%");
  EXPECT_EQ(done.err, "");
  EXPECT_EQ(done.out,
            "wave: 2 of 4 elements\n"
            "published: 2 elements, 2 published, 0 unchanged, 4 files written, 28 bytes\n");
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(published(), (names{"0A", "0E"}));
}

TEST_F(FleetWave, GrowsUntilItIsTheFleet) {
  const std::vector<std::pair<std::string, names>> waves = {{"2%", {"0A"}},
                                                            {"28.7%", {"0A"}},
                                                            {"28.71%", {"0A", "0E"}},
                                                            {"55%", {"0A", "0B", "0E"}},
                                                            {"100%", {"0A", "0B", "0C", "0E"}}};
  for (const auto &[share, elements] : waves) {
    ASSERT_EQ(run_wave(share).status, 0) << share;
    EXPECT_EQ(published(), elements) << share;
  }
  EXPECT_EQ(run().out,
            "unchanged: 4 elements, 0 published, 4 unchanged, 0 files written, 0 bytes\n");
}

TEST_F(FleetWave, PublishesTheListedElements) {
  ASSERT_EQ(run_wave("0c,0E,0c").status, 0);
  EXPECT_EQ(published(), (names{"0C", "0E"}));
  write_bytes(dir_ / "list", "# rest\n0A\n");
  ASSERT_EQ(run_wave("@" + dir_ / "list").status, 0);
  EXPECT_EQ(published(), (names{"0A", "0C", "0E"}));
}

TEST_F(FleetWave, LeavesTheOtherElementsAsTheyAre) {
  const authority ca;
  ca.issue("publisher");
  ASSERT_EQ(run(ca.signs_as("publisher")).status, 0);
  const auto outside = snapshot(folder_of("0B"));
  ASSERT_EQ(tree(folder_of("0B")), (names{"0B.checksum", "0B.k", "0B.k.p7s"}));
  const auto inside = snapshot(folder_of("0A"));
  put("common/Zone/z", "new z");
  ASSERT_EQ(run_wave("2%", ca.signs_as("publisher")).status, 0);
  EXPECT_EQ(snapshot(folder_of("0B")), outside);
  EXPECT_NE(snapshot(folder_of("0A")), inside);
}

TEST_F(FleetWave, DoesNotReadTheOtherElements) {
  put("elements/0B/Wlan/empty", "");
  put("elements/0 C/Nonsense/a", "a");
  put("elements/0F/.hidden", "");
  put("elements/0f/Ap/own", "the same element twice");
  EXPECT_EQ(run_wave("50%").out,
            "wave: 2 of 7 elements\n"
            "published: 2 elements, 2 published, 0 unchanged, 4 files written, 28 bytes\n");
}

TEST_F(FleetWave, IsRefusedWithABrokenElement) {
  put("elements/0E/Wlan/empty", "");
  std::filesystem::remove_all(fleet_ + "/elements/0e");
  const finished done = run_wave("30%");
  EXPECT_EQ(done.status, 6);
  EXPECT_EQ(done.err, "zotconf: refused: " + fleet_ + "/elements/0E/Wlan/empty: is empty\n");
  EXPECT_FALSE(exists(publication_));
}

TEST_F(FleetWave, IsRefusedWithTwoFoldersOfOneElement) {
  put("elements/0E/Ap/own", "own");
  EXPECT_EQ(run_wave("2%").status, 0);
  for (const std::string part : {"30%", "0e"}) {
    const finished done = run_wave(part);
    EXPECT_EQ(done.status, 6) << part;
    EXPECT_NE(done.err.find("another folder is the same element, 0E"), std::string::npos)
        << done.err;
  }
  EXPECT_EQ(published(), names{"0A"});
}

TEST_F(FleetWave, WritesNothingInADryRun) {
  EXPECT_EQ(run_wave("30%", {"--dry-run"}).out,
            "INDEX  NEW  CHANGED  SAME  REMOVED\n"
            "0A       3        0     0        0\n"
            "0E       3        0     0        0\n"
            "wave: 2 of 4 elements\n"
            "would publish: 2 elements, 2 to publish, 0 unchanged, 4 files to write, 28 bytes\n");
  EXPECT_FALSE(exists(publication_));
}

TEST_F(FleetWave, PrintsItsSizeAsJson) {
  const json_value part(run_wave("30%", {"--json"}).out);
  EXPECT_EQ(part["wave"]["elements"].number(), 2);
  EXPECT_EQ(part["wave"]["of"].number(), 4);
  EXPECT_EQ(part["elements"].number(), 2);
  EXPECT_EQ(part["published"].number(), 2);
  EXPECT_TRUE(json_value(run({"--json"}).out)["wave"].is_null());
}

TEST_F(FleetWave, KeepsTheKOfASmallerWaveWithTheSameConfigId) {
  const names rollout = {"--config-id", "00000000-1111-2222-3333-444444444444"};
  ASSERT_EQ(run().status, 0);
  put("common/Zone/z", "new z");
  ASSERT_EQ(run_wave("2%", rollout).status, 0);
  EXPECT_EQ(k("0B").config_id, "");
  const auto first = snapshot(folder_of("0A"));
  EXPECT_EQ(run_wave("55%", rollout).out,
            "wave: 3 of 4 elements\n"
            "published: 3 elements, 2 published, 1 unchanged, 0 files written, 0 bytes\n");
  EXPECT_EQ(snapshot(folder_of("0A")), first);
  EXPECT_EQ(k("0A").config_id, rollout[1]);
  EXPECT_EQ(k("0B").config_id, rollout[1]);
  EXPECT_EQ(k("0C").config_id, "");
}

TEST_F(FleetWave, IsRefusedWithoutAnElementAndNamesTheSmallestShare) {
  const finished done = run_wave("1.4%");
  EXPECT_EQ(done.status, 6);
  EXPECT_EQ(done.err, "zotconf: refused: " + fleet_ +
                          "/elements: no element is in a wave of 1.4%, the first one is in "
                          "1.4239%\ntry: zotconf publish ... --wave 1.4239%\n");
  EXPECT_FALSE(exists(publication_));
  EXPECT_EQ(run_wave("1.4239%").status, 0);
  EXPECT_EQ(published(), names{"0A"});
}

TEST_F(FleetWave, IsRefusedWithElementsThatTheFleetLacks) {
  const finished done = run_wave("0A,0d,0F");
  EXPECT_EQ(done.status, 6);
  EXPECT_EQ(done.err, "zotconf: refused: " + fleet_ +
                          "/elements: lacks 2 of the 3 elements of --wave: 0D, 0F\n");
  EXPECT_FALSE(exists(publication_));
}

TEST_F(FleetWave, NamesTwentyOfTheElementsThatTheFleetLacks) {
  std::string list = "0A";
  for (int i = 10; i < 33; ++i) {
    list += "," + std::to_string(i);
  }
  const std::string told = run_wave(list).err;
  EXPECT_NE(told.find("lacks 23 of the 24 elements of --wave: 10, 11, "), std::string::npos);
  EXPECT_TRUE(told.ends_with(", 28, 29 and 3 others\n")) << told;
}

TEST_F(FleetWave, PrintsARefusedWaveAsJson) {
  const finished done = run_wave("1%", {"--json"});
  EXPECT_EQ(done.status, 6);
  const json_value told(done.out);
  EXPECT_EQ(told["result"].text(), "refused");
  EXPECT_TRUE(told["wave"].is_null());
  EXPECT_TRUE(told["refused"][0]["index"].is_null());
  EXPECT_TRUE(told["refused"][0]["reason"].text().ends_with("the first one is in 1.4239%"));
}

struct wrong_wave {
  std::string test;
  std::string part;
  std::string why;
};

class FleetWaveUsage : public FleetWave, public testing::WithParamInterface<wrong_wave> {};

TEST_P(FleetWaveUsage, IsRefused) {
  const finished done = run_wave(GetParam().part);
  EXPECT_EQ(done.status, 2) << done.out;
  EXPECT_EQ(done.err,
            "zotconf: publish: --wave: " + GetParam().why + "\ntry: zotconf publish --help\n");
  EXPECT_FALSE(exists(publication_));
}

constexpr const char *no_share = " is not a share above 0% and up to 100%, with at most 4 decimals";
constexpr const char *no_index =
    " is no index: it must be 1 to 17 characters from 0-9 A-Z a-z : . _ -";

INSTANTIATE_TEST_SUITE_P(
    Parts, FleetWaveUsage,
    testing::Values(wrong_wave{"NoShare", "0%", std::string("\"0%\"") + no_share},
                    wrong_wave{"MoreThanAll", "101%", std::string("\"101%\"") + no_share},
                    wrong_wave{"NoNumber", "abc%", std::string("\"abc%\"") + no_share},
                    wrong_wave{"TooManyDecimals", "1.00001%",
                               std::string("\"1.00001%\"") + no_share},
                    wrong_wave{"NoIndex", "0A,0 B", std::string("\"0 B\"") + no_index},
                    wrong_wave{"EmptyIndex", "0A,,0B", std::string("\"\"") + no_index},
                    wrong_wave{"EmptyList", "", "\"\" lists no element"},
                    wrong_wave{"AbsentFile", "@/no/such/list",
                               "cannot open /no/such/list: No such file or directory"}),
    [](const auto &tested) { return tested.param.test; });

TEST_F(FleetWave, IsRefusedWithAFileThatListsAWrongIndex) {
  write_bytes(dir_ / "list", "0A\n0 B\n");
  const finished done = run_wave("@" + dir_ / "list");
  EXPECT_EQ(done.status, 2);
  EXPECT_NE(done.err.find(dir_ / "list" + ": \"0 B\" is no index"), std::string::npos) << done.err;
  EXPECT_FALSE(exists(publication_));
}

TEST_F(FleetWave, IsRefusedWithAWordThatIsNoElement) {
  const finished done = run_wave("abc");
  EXPECT_EQ(done.status, 6);
  EXPECT_NE(done.err.find("lacks 1 of the 1 elements of --wave: ABC\n"), std::string::npos)
      << done.err;
}

TEST_F(FleetWave, NeedsAFleet) {
  const finished done = run_zotconf({"publish", fleet_ + "/common", "--out", publication_,
                                     "--index", "0A", "--cluster", "c", "--wave", "1%"});
  EXPECT_EQ(done.status, 2);
  EXPECT_EQ(done.err, "zotconf: publish: --wave requires --fleet\ntry: zotconf publish --help\n");
  EXPECT_FALSE(exists(publication_));
}

}  // namespace
}  // namespace zot::test
