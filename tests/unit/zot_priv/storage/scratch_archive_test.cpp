// SPDX-License-Identifier: Apache-2.0
// Archives that bring more than they should. They are refused, nothing is written elsewhere, and
// nothing is left that the next download could stumble over.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/storage/scratch_records.hpp"

namespace {

using namespace zot::test;
namespace fs = std::filesystem;

// The path from the GPB directory to the sentinel beside the scratch prefix.
constexpr const char *relative_sentinel = "../../../../sentinel";
constexpr const char *listed_file = "config/Wlan/office/5";

std::string nested(const std::string &start, int levels) {
  std::string path = start;
  for (int level = 0; level < levels; ++level) {
    path += "/d";
  }
  return path;
}

struct hostile_case {
  const char *name;
  // The members in addition to the listed files. A member with a listed path replaces that file.
  std::vector<member> (*members)(const std::string &sentinel);
};

void PrintTo(const hostile_case &tested, std::ostream *out) {
  *out << tested.name;
}

member link_to(const std::string &path, const std::string &target) {
  return {.path = path, .type = member_type::symlink, .target = target};
}

member hard_link_to(const std::string &path, const std::string &target) {
  return {.path = path, .type = member_type::hardlink, .target = target};
}

const std::vector<hostile_case> hostile_archives = {
    {"AbsoluteLink",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to("config/link", sentinel)};
     }},
    {"AbsoluteLinkWrittenThrough",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to("config/link", sentinel),
               {.path = "config/link/planted", .bytes = "planted"}};
     }},
    {"AbsoluteLinkToAFileWrittenThrough",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to("config/link", sentinel + "/kept"),
               {.path = "config/link", .bytes = "planted"},
               link_to("config/link", sentinel + "/kept")};
     }},
    {"RelativeLink",
     [](const std::string &) -> std::vector<member> {
       return {link_to("config/link", relative_sentinel)};
     }},
    {"RelativeLinkWrittenThrough",
     [](const std::string &) -> std::vector<member> {
       return {link_to("config/link", relative_sentinel),
               {.path = "config/link/planted", .bytes = "planted"}};
     }},
    {"LinkInsideTheGpbDirectory",
     [](const std::string &) -> std::vector<member> { return {link_to("config/Ap", "Wlan")}; }},
    {"DanglingLink",
     [](const std::string &) -> std::vector<member> {
       return {link_to("config/link", "nowhere")};
     }},
    {"LinkAtAListedPath",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to(listed_file, sentinel + "/kept")};
     }},
    {"LinkNamedAsTheGpbDirectory",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to("config", sentinel)};
     }},
    {"LinkBesideTheGpbDirectory",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to("link", sentinel)};
     }},
    {"LinkNamedAsK",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to("subsys.k", sentinel + "/kept")};
     }},
    {"LinkNamedAsTheNextDownload",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to("subsys.k.tmp", sentinel + "/kept"),
               link_to("subsys.checksum.tmp", sentinel + "/kept")};
     }},
    {"LinkNamedAsTheArchive",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to("gpb.tgz", sentinel + "/kept")};
     }},
    {"HardLinkToK",
     [](const std::string &) -> std::vector<member> {
       return {hard_link_to("config/Wlan/linked", "subsys.k")};
     }},
    {"HardLinkWithinTheArchive",
     [](const std::string &) -> std::vector<member> {
       return {{.path = "config/Ap/a/1", .bytes = "bytes"},
               hard_link_to("config/Ap/b/1", "config/Ap/a/1")};
     }},
    {"HardLinkToAFileElsewhere",
     [](const std::string &sentinel) -> std::vector<member> {
       return {hard_link_to("config/linked", sentinel + "/kept")};
     }},
    {"HardLinkThroughALink",
     [](const std::string &sentinel) -> std::vector<member> {
       return {link_to("config/link", sentinel), hard_link_to("config/linked", "config/link/kept")};
     }},
    {"FifoAtAListedPath",
     [](const std::string &) -> std::vector<member> {
       return {{.path = listed_file, .type = member_type::fifo}};
     }},
    {"FifoNamedAsK",
     [](const std::string &) -> std::vector<member> {
       return {{.path = "subsys.k", .type = member_type::fifo}};
     }},
    {"FifoNamedAsTheNextDownload",
     [](const std::string &) -> std::vector<member> {
       return {{.path = "subsys.k.tmp", .type = member_type::fifo},
               {.path = "subsys.checksum.tmp", .type = member_type::fifo}};
     }},
    {"DeviceAtAListedPath",
     [](const std::string &) -> std::vector<member> {
       return {{.path = listed_file, .type = member_type::chardev}};
     }},
    {"OtherK",
     [](const std::string &) -> std::vector<member> {
       return {{.path = "subsys.k", .bytes = "other bytes"}};
     }},
    {"OtherChecksum",
     [](const std::string &) -> std::vector<member> {
       return {{.path = "subsys.checksum", .bytes = std::string(64, 'a')}};
     }},
    {"DirectoryNamedAsK",
     [](const std::string &) -> std::vector<member> {
       return {{.path = "subsys.k/", .type = member_type::dir, .mode = 0755}};
     }},
    {"DirectoryNamedAsTheArchive",
     [](const std::string &) -> std::vector<member> {
       return {{.path = "gpb.tgz/", .type = member_type::dir, .mode = 0755}};
     }},
    {"FileBesideTheGpbDirectory",
     [](const std::string &) -> std::vector<member> {
       return {{.path = "planted", .bytes = "planted"}};
     }},
    {"DirectoryBesideTheGpbDirectory",
     [](const std::string &)
         -> std::vector<member> { return {{.path = "other/planted", .bytes = "planted"}}; }},
    {"AbsoluteName",
     [](const std::string &sentinel)
         -> std::vector<member> { return {{.path = sentinel + "/planted", .bytes = "planted"}}; }},
    {"NameThatClimbs",
     [](const std::string &)
         -> std::vector<
             member> { return {{.path = "../../../sentinel/planted", .bytes = "planted"}}; }},
    {"NameThatClimbsWithin",
     [](const std::string &) -> std::
                                 vector<member> {
                                   return {{.path = std::string("config/") + relative_sentinel +
                                                    "/planted",
                                            .bytes = "planted"}};
                                 }},
    {"DeepNestingInTheGpbDirectory",
     [](const std::string &)
         -> std::vector<
             member> { return {{.path = nested("config", 200) + "/file", .bytes = "deep"}}; }},
    {"DeepNestingBesideTheGpbDirectory",
     [](const std::string &)
         -> std::vector<
             member> { return {{.path = nested("other", 200) + "/file", .bytes = "deep"}}; }},
};

class HostileArchive : public testing::TestWithParam<hostile_case> {
 protected:
  HostileArchive() {
    std::vector<member> members = GetParam().members(scratch_.sentinel);
    for (const member &item : scratch_.listed()) {
      if (std::ranges::find(members, item.path, &member::path) == members.end()) {
        members.push_back(item);
      }
    }
    scratch_.answer_with(members);
  }

  scratch scratch_;
};

TEST_P(HostileArchive, IsCorrupted) {
  EXPECT_EQ(scratch_.download(), ZOT_ERR_CORRUPTED);
}

TEST_P(HostileArchive, WritesNothingOutsideTheScratchDirectory) {
  const std::map<std::string, std::string> before = scratch_.outside();
  scratch_.download();
  EXPECT_EQ(scratch_.outside(), before);
}

TEST_P(HostileArchive, LeavesOnlyPlainFilesOfKnownNames) {
  scratch_.download();
  EXPECT_EQ(scratch_.foreign(), std::vector<std::string>{});
  const std::vector<std::string> known = {"config", "gpb.tgz", "subsys.checksum", "subsys.k"};
  EXPECT_TRUE(std::ranges::includes(known, scratch_.names()))
      << testing::PrintToString(scratch_.names());
}

TEST_P(HostileArchive, DoesNotSpoilTheNextUpdate) {
  scratch_.download();
  const std::map<std::string, std::string> before = scratch_.outside();
  EXPECT_EQ(scratch_.update(), ZOT_OK) << scratch_.tested.error_text();
  EXPECT_EQ(scratch_.outside(), before);
}

INSTANTIATE_TEST_SUITE_P(Members, HostileArchive, testing::ValuesIn(hostile_archives),
                         [](const auto &tested) { return tested.param.name; });

TEST(ScratchArchive, ProperArchiveIsTakenOver) {
  scratch unpacked;
  unpacked.answer_with(unpacked.listed());
  EXPECT_EQ(unpacked.download(), ZOT_OK) << unpacked.tested.error_text();
  EXPECT_EQ(tree(unpacked / "config"), (std::vector<std::string>{"Wlan/office/5", "Zone/hq/1"}));
}

TEST(ScratchArchive, DirectoryMembersAreTakenOver) {
  scratch unpacked;
  std::vector<member> members = {
      {.path = "config/", .type = member_type::dir, .mode = 0755},
      {.path = "config/Wlan/", .type = member_type::dir, .mode = 0755},
      {.path = "config/Wlan/office/", .type = member_type::dir, .mode = 0755}};
  std::ranges::copy(unpacked.listed(), std::back_inserter(members));
  unpacked.answer_with(members);
  EXPECT_EQ(unpacked.download(), ZOT_OK) << unpacked.tested.error_text();
}

TEST(ScratchArchive, NamesThatBeginWithADotAreTakenOver) {
  scratch unpacked;
  std::vector<member> members = unpacked.listed();
  for (member &item : members) {
    item.path = "./" + item.path;
  }
  unpacked.answer_with(members);
  EXPECT_EQ(unpacked.download(), ZOT_OK) << unpacked.tested.error_text();
}

TEST(ScratchArchive, RefusedArchiveIsNamed) {
  scratch unpacked;
  std::vector<member> members = unpacked.listed();
  members.push_back({.path = "planted", .bytes = "planted"});
  unpacked.answer_with(members);
  ASSERT_EQ(unpacked.download(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(unpacked.tested.error_text(),
            "[ap_download_gpb]: archive holds more than GPB files: " + unpacked.root + "/gpb.tgz");
}

// The unpacker and its user decide whether such bits reach the disk.
TEST(ScratchArchive, SetUserIdBitsDoNotStay) {
  scratch unpacked;
  std::vector<member> members = unpacked.listed();
  for (member &item : members) {
    item.mode = 06755;
  }
  members.push_back({.path = "config/Vlan/unlisted/1", .bytes = "unlisted", .mode = 04755});
  unpacked.answer_with(members);
  unpacked.download();
  EXPECT_EQ(unpacked.foreign(), std::vector<std::string>{});
}

// Some unpackers replace the file by the directory. Others take the file for the directory and find
// nothing to change.
TEST(ScratchArchive, DirectoryOfTheNameAndModeOfKIsRefusedOrChangesNothing) {
  scratch unpacked;
  const std::string k = read_bytes(unpacked / "subsys.k");
  std::vector<member> members = unpacked.listed();
  const unsigned mode = mode_of(unpacked / "subsys.k");
  members.push_back({.path = "subsys.k/", .type = member_type::dir, .mode = mode});
  unpacked.answer_with(members);
  EXPECT_TRUE(unpacked.download() == ZOT_ERR_CORRUPTED || read_bytes(unpacked / "subsys.k") == k);
  EXPECT_EQ(unpacked.update(), ZOT_OK) << unpacked.tested.error_text();
}

// The first archive is refused because of its link. The second one relies on that link.
TEST(ScratchArchive, LinkOfOneArchiveIsNoWayOutForTheNext) {
  scratch unpacked;
  std::vector<member> first = unpacked.listed();
  first.push_back(link_to("config/link", unpacked.sentinel));
  unpacked.answer_with(first);
  ASSERT_EQ(unpacked.download(), ZOT_ERR_CORRUPTED);
  std::vector<member> second = unpacked.listed();
  second.push_back({.path = "config/link/planted", .bytes = "planted"});
  unpacked.answer_with(second);
  const std::map<std::string, std::string> before = unpacked.outside();
  EXPECT_EQ(unpacked.download(), ZOT_OK);
  EXPECT_EQ(unpacked.outside(), before);
}

TEST(ScratchArchive, LinkInThePlaceOfAMissingGpbDirectoryIsNoWayOut) {
  scratch unpacked;
  fs::remove_all(unpacked / "config");
  std::vector<member> members = {link_to("config", unpacked.sentinel)};
  std::ranges::copy(unpacked.listed(), std::back_inserter(members));
  unpacked.answer_with(members);
  const std::map<std::string, std::string> before = unpacked.outside();
  EXPECT_EQ(unpacked.download(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(unpacked.outside(), before);
  EXPECT_FALSE(fs::is_symlink(unpacked / "config"));
}

// A process that ended while unpacking did not sweep.
struct leftover_case {
  const char *name;
  const char *link;
  const char *member_path;
};

void PrintTo(const leftover_case &tested, std::ostream *out) {
  *out << tested.name;
}

class LeftoverLink : public testing::TestWithParam<leftover_case> {};

TEST_P(LeftoverLink, IsNoWayOutForTheNextArchive) {
  scratch unpacked;
  const fs::path link = unpacked / GetParam().link;
  fs::create_directories(link.parent_path());
  fs::remove_all(link);
  fs::create_symlink(unpacked.sentinel, link);
  std::vector<member> members = unpacked.listed();
  members.push_back({.path = GetParam().member_path, .bytes = "planted"});
  unpacked.answer_with(members);
  const std::map<std::string, std::string> before = unpacked.outside();
  unpacked.download();
  EXPECT_EQ(unpacked.outside(), before);
  EXPECT_FALSE(fs::is_symlink(link));
}

INSTANTIATE_TEST_SUITE_P(
    Places, LeftoverLink,
    testing::Values(leftover_case{"GpbDirectory", "config", "config/planted"},
                    leftover_case{"InTheGpbDirectory", "config/link", "config/link/planted"},
                    leftover_case{"DeepInTheGpbDirectory", "config/Wlan/link",
                                  "config/Wlan/link/planted"},
                    leftover_case{"BesideTheGpbDirectory", "link", "link/planted"},
                    leftover_case{"InAnotherDirectory", "other/link", "other/link/planted"}),
    [](const auto &tested) { return tested.param.name; });

TEST(ScratchArchive, LeftoverFifoDoesNotHangTheDownload) {
  scratch unpacked;
  fs::create_directories(unpacked / "config/Wlan/office");
  ASSERT_EQ(::mkfifo((unpacked / listed_file).c_str(), 0600), 0);
  unpacked.answer_with(unpacked.listed());
  EXPECT_EQ(unpacked.download(), ZOT_OK) << unpacked.tested.error_text();
}

TEST(ScratchArchive, FilesOfEarlierDownloadsGoOnceTheNewSetIsVerified) {
  scratch unpacked;
  write_bytes(unpacked / "config/Wlan/office/4", "earlier version");
  write_bytes(unpacked / "config/Vlan/gone/1", "earlier object");
  unpacked.answer_with(unpacked.listed());
  ASSERT_EQ(unpacked.download(), ZOT_OK);
  EXPECT_EQ(tree(unpacked / "config"), (std::vector<std::string>{"Wlan/office/5", "Zone/hq/1"}));
  EXPECT_FALSE(exists(unpacked / "config/Vlan"));
}

TEST(ScratchArchive, FilesThatKDoesNotListDoNotStay) {
  scratch unpacked;
  std::vector<member> members = unpacked.listed();
  members.push_back({.path = "config/Vlan/unlisted/1", .bytes = "unlisted"});
  unpacked.answer_with(members);
  ASSERT_EQ(unpacked.download(), ZOT_OK) << unpacked.tested.error_text();
  EXPECT_EQ(tree(unpacked / "config"), (std::vector<std::string>{"Wlan/office/5", "Zone/hq/1"}));
}

TEST(ScratchArchive, FilesOfEarlierDownloadsGoWhenTheNewSetIsDamaged) {
  scratch unpacked;
  write_bytes(unpacked / "config/Vlan/gone/1", "earlier object");
  std::vector<member> members = unpacked.listed();
  members[0].bytes = "other bytes";
  unpacked.answer_with(members);
  ASSERT_EQ(unpacked.download(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(tree(unpacked / "config"), (std::vector<std::string>{"Wlan/office/5", "Zone/hq/1"}));
}

// Every archive of a whole directory has such a member.
TEST(ScratchArchive, ScratchDirectoryKeepsItsMode) {
  scratch unpacked;
  ASSERT_EQ(::chmod(unpacked.root.c_str(), 0750), 0);
  std::vector<member> members = {{.path = "./", .type = member_type::dir, .mode = 0777}};
  std::ranges::copy(unpacked.listed(), std::back_inserter(members));
  unpacked.answer_with(members);
  EXPECT_EQ(unpacked.download(), ZOT_OK) << unpacked.tested.error_text();
  EXPECT_EQ(mode_of(unpacked.root), 0750U);
}

// One unpacker refuses the name, another skips it, and a third accepts it.
TEST(ScratchArchive, DirectoryAboveKeepsItsMode) {
  scratch unpacked;
  const std::string above = fs::path(unpacked.root).parent_path().string();
  ASSERT_EQ(::chmod(above.c_str(), 01750), 0);
  std::vector<member> members = unpacked.listed();
  members.push_back({.path = "..", .type = member_type::dir, .mode = 0777});
  unpacked.answer_with(members);
  const int status = unpacked.download();
  EXPECT_TRUE(status == ZOT_ERR_CORRUPTED || status == ZOT_OK) << status;
  EXPECT_EQ(mode_of(above), 01750U);
}

TEST(ScratchArchive, KThatWasReplacedDoesNotStay) {
  scratch unpacked;
  std::vector<member> members = unpacked.listed();
  members.push_back({.path = "subsys.k", .bytes = "other bytes"});
  unpacked.answer_with(members);
  ASSERT_EQ(unpacked.download(), ZOT_ERR_CORRUPTED);
  EXPECT_FALSE(exists(unpacked / "subsys.k"));
  EXPECT_TRUE(exists(unpacked / "subsys.checksum"));
}

}  // namespace
