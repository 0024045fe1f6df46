// SPDX-License-Identifier: Apache-2.0
#include "tools/room.hpp"

#include <sys/statvfs.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "cached_element.hpp"
#include "json_value.hpp"

namespace zot::test {
namespace {

// A configuration of three files in two folders of one category.
zotconf::stored_k configuration() {
  zotconf::stored_k k;
  k.bytes = std::string(5000, 'k');
  for (const char *const path : {"/Wlan/a/1", "/Wlan/a/2", "/Wlan/b/1"}) {
    zotconf::listed_file file;
    file.path = path;
    file.size = 4097;
    k.files.push_back(file);
  }
  return k;
}

zotconf::volume volume_with(uint64_t bytes, std::optional<uint64_t> files, bool folders) {
  zotconf::volume on;
  on.block_size = 4096;
  on.free_bytes = bytes;
  on.free_files = files;
  on.folders_take_blocks = folders;
  return on;
}

TEST(Room, CountsWholeBlocksOfFilesAndFolders) {
  // Two blocks for each file and for K, one for its checksum, one for each of four folders.
  const zotconf::room told = zotconf::room_of(configuration(), volume_with(0, 0, true));
  EXPECT_EQ(told.needed_bytes, (3 * 2 + 2 + 1 + 4) * 4096U);
  EXPECT_EQ(told.needed_files, 3U + 2U + 4U);
}

TEST(Room, LeavesOutFoldersThatTakeNoBlock) {
  const zotconf::room told = zotconf::room_of(configuration(), volume_with(0, 0, false));
  EXPECT_EQ(told.needed_bytes, (3 * 2 + 2 + 1) * 4096U);
  EXPECT_EQ(told.needed_files, 9U);
}

TEST(Room, FitsToTheLastByteAndFile) {
  const auto fits = [](uint64_t bytes, std::optional<uint64_t> files) {
    return zotconf::room_of(configuration(), volume_with(bytes, files, false)).fits_beside();
  };
  EXPECT_TRUE(fits(9 * 4096U, 9));
  EXPECT_FALSE(fits(9 * 4096U - 1, 9));
  EXPECT_FALSE(fits(9 * 4096U, 8));
  EXPECT_TRUE(fits(9 * 4096U, std::nullopt));
}

class RoomOfCache : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    commit_source();
    service_->stop(SIGTERM);
    service_.reset();
  }
  [[nodiscard]] json_value told() const {
    return json_value(run({"status", "--json"}).out)["room"];
  }
};

TEST_F(RoomOfCache, IsThatOfItsFileSystem) {
  struct statvfs found {};
  ASSERT_EQ(::statvfs(conf_root_.c_str(), &found), 0);
  const json_value room = told();
  EXPECT_GT(room["free_bytes"].number(), 0);
  EXPECT_EQ(static_cast<uint64_t>(room["needed_bytes"].number()) % found.f_frsize, 0U);
  EXPECT_GE(room["needed_bytes"].number(), 3.0 * static_cast<double>(found.f_frsize));
  EXPECT_EQ(room["needed_files"].number(), 6);
  EXPECT_TRUE(room["fits_beside"].flag());
  EXPECT_FALSE(has(run({"status"}).out, "warning"));
}

// A file system of its own for the cache, with this much room.
struct small_volume {
  const char *size;
  bool fits;
};

class RoomOfSmallVolume : public RoomOfCache, public testing::WithParamInterface<small_volume> {};

TEST_P(RoomOfSmallVolume, IsWarnedOfWhenAnUpdateDoesNotFitBesideTheOldFiles) {
  const std::string enter =
      ::geteuid() == 0 ? "unshare --mount" : "unshare --map-root-user --mount";
  if (std::system((enter + " true").c_str()) != 0) {
    GTEST_SKIP() << "no mounts of its own";
  }
  const std::string device = dir_ / "device";
  const std::string saved = dir_ / "saved";
  std::filesystem::copy(device, saved, std::filesystem::copy_options::recursive);
  const auto told_by = [&](const std::string &words) {
    const std::string script = "mount -t tmpfs -o size=" + std::string(GetParam().size) +
                               " none '" + device + "' && cp -r '" + saved + "'/. '" + device +
                               "' && ZOT_DEV_PATH= ZOT_PREFIX_CONF_ROOT='" + device +
                               "' ZOT_PREFIX_TMP_ROOT='" + device + "' '" ZOTCONF_PROGRAM "' " +
                               words + " >'" + (dir_ / "told") + "'";
    write_bytes(dir_ / "script", script);
    EXPECT_EQ(std::system((enter + " sh '" + (dir_ / "script") + "'").c_str()), 0);
    return read_bytes(dir_ / "told");
  };
  EXPECT_EQ(json_value(told_by("status --json"))["room"]["fits_beside"].flag(), GetParam().fits);
  EXPECT_EQ(has(told_by("status"), std::string("\nwarning: ") + zotconf::room_warning + "\n"),
            !GetParam().fits);
}

// The cache and the scratch area take seven pages of it, and an update three.
INSTANTIATE_TEST_SUITE_P(Sizes, RoomOfSmallVolume,
                         testing::Values(small_volume{"40k", true}, small_volume{"36k", false}));

TEST_F(RoomOfCache, IsNotToldWithoutAConfigurationInForce) {
  std::filesystem::remove(conf("config/Wlan/a/1"));
  EXPECT_TRUE(told().is_null());
}

}  // namespace
}  // namespace zot::test
