// SPDX-License-Identifier: Apache-2.0
#include "tools/files/archive_reader.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

// Unpacks an archive of a folder, created by tar with the test's arguments.
class Unpack : public testing::Test {
 protected:
  void pack(const std::string &words) const {
    const std::string command =
        "tar czf '" + archive_ + "' -C '" + (dir_ / "pack") + "' " + words + " 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  void SetUp() override {
    write_bytes(dir_ / "pack/config/Wlan/a/1", "ssid=a");
    std::filesystem::create_directories(dir_ / "out");
  }

  temp_dir dir_;
  std::string archive_ = dir_ / "files.tgz";
  std::map<std::string, zotconf::wanted_member> wanted_ = {
      {"config/Wlan/a/1", {.to = dir_ / "out/a", .longest = 6}}};
};

TEST_F(Unpack, TakesWhatIsWantedAndNothingElse) {
  write_bytes(dir_ / "pack/config/Wlan/b/1", "ssid=b");
  pack("config");
  zotconf::unpack(archive_, wanted_);
  EXPECT_EQ(tree(dir_ / "out"), std::vector<std::string>{"a"});
  EXPECT_EQ(read_bytes(dir_ / "out/a"), "ssid=a");
}

TEST_F(Unpack, TakesNamesWithALeadingDotOrSlash) {
  pack("./config");
  zotconf::unpack(archive_, wanted_);
  EXPECT_EQ(read_bytes(dir_ / "out/a"), "ssid=a");
  std::filesystem::remove(dir_ / "out/a");
  pack("-P --transform 's,^,/,' config/Wlan/a/1");
  zotconf::unpack(archive_, wanted_);
  EXPECT_EQ(read_bytes(dir_ / "out/a"), "ssid=a");
}

TEST_F(Unpack, TakesNoLink) {
  std::filesystem::remove(dir_ / "pack/config/Wlan/a/1");
  write_bytes(dir_ / "pack/target", "target");
  std::filesystem::create_symlink("/etc/passwd", dir_ / "pack/config/Wlan/a/1");
  pack("config");
  zotconf::unpack(archive_, wanted_);
  std::filesystem::remove(dir_ / "pack/config/Wlan/a/1");
  std::filesystem::create_hard_link(dir_ / "pack/target", dir_ / "pack/config/Wlan/a/1");
  pack("target config");
  zotconf::unpack(archive_, wanted_);
  EXPECT_TRUE(std::filesystem::is_empty(dir_ / "out"));
}

TEST_F(Unpack, CutsWhatIsTooLong) {
  write_bytes(dir_ / "pack/config/Wlan/a/1", std::string(100000, 'x'));
  pack("config");
  zotconf::unpack(archive_, wanted_);
  EXPECT_EQ(std::filesystem::file_size(dir_ / "out/a"), 7U);
}

TEST_F(Unpack, RefusesWhatIsNoArchive) {
  write_bytes(archive_, "404 not found");
  EXPECT_THROW(zotconf::unpack(archive_, wanted_), std::runtime_error);
}

TEST_F(Unpack, RefusesATruncatedArchive) {
  std::string noise;
  for (unsigned int i = 0; noise.size() < 200000; ++i) {
    noise += sha256_hex(std::to_string(i));
  }
  write_bytes(dir_ / "pack/config/Wlan/a/1", noise);
  wanted_.at("config/Wlan/a/1").longest = noise.size();
  pack("config");
  std::filesystem::resize_file(archive_, std::filesystem::file_size(archive_) / 2);
  EXPECT_THROW(zotconf::unpack(archive_, wanted_), std::runtime_error);
}

TEST_F(Unpack, ListsTheMembersOfAnArchive) {
  std::filesystem::create_symlink("/etc/passwd", dir_ / "pack/link");
  std::filesystem::permissions(dir_ / "pack/config/Wlan/a/1", std::filesystem::perms(04644));
  pack("config/Wlan/a link");
  using zotconf::member_kind;
  const auto members = zotconf::members_of(archive_, 6);
  ASSERT_EQ(members.size(), 3U);
  EXPECT_EQ(members[0].name, "config/Wlan/a/");
  EXPECT_EQ(members[0].kind, member_kind::folder);
  EXPECT_EQ(members[1].name, "config/Wlan/a/1");
  EXPECT_EQ(members[1].kind, member_kind::file);
  EXPECT_TRUE(members[1].has_set_id);
  EXPECT_EQ(members[2].kind, member_kind::other);
  EXPECT_FALSE(members[2].has_set_id);
}

TEST_F(Unpack, ListsNoMembersOfWhatIsTooLargeOrNotGzip) {
  pack("config");
  EXPECT_THROW(zotconf::members_of(archive_, 5), std::runtime_error);
  ASSERT_EQ(std::system(("gunzip -S .tgz '" + archive_ + "'").c_str()), 0);
  EXPECT_THROW(zotconf::members_of(dir_ / "files", 6), std::runtime_error);
}

}  // namespace
}  // namespace zot::test
