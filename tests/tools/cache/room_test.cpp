// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/room.hpp"

#include <sys/statvfs.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"

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

zotconf::volume volume_with(std::optional<uint64_t> bytes, std::optional<uint64_t> files,
                            uint64_t folder_size) {
  zotconf::volume on;
  on.block_size = 4096;
  on.free_bytes = bytes;
  on.free_files = files;
  on.folder_size = folder_size;
  return on;
}

TEST(Room, CountsWholeBlocksOfFilesAndFolders) {
  // Two blocks for each file and for K, one for the checksum, and five folders, including undo.
  const zotconf::room told = zotconf::room_of(configuration(), volume_with(0, 0, 1024));
  EXPECT_EQ(told.needed_bytes, (3 * 2 + 2 + 1) * 4096U + 5 * 1024U);
  EXPECT_EQ(told.needed_files, 3U + 2U + 5U + 7U);
}

TEST(Room, FitsToTheLastByteAndFile) {
  const auto fits = [](std::optional<uint64_t> bytes, std::optional<uint64_t> files) {
    return zotconf::room_of(configuration(), volume_with(bytes, files, 0)).fits_beside();
  };
  EXPECT_TRUE(fits(9 * 4096U, 17));
  EXPECT_FALSE(fits(9 * 4096U - 1, 17));
  EXPECT_FALSE(fits(9 * 4096U, 16));
  EXPECT_TRUE(fits(std::nullopt, 17));
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
  EXPECT_EQ(room["needed_files"].number(), 1 + 2 + 4 + 7);
  EXPECT_TRUE(room["fits_beside"].flag());
  EXPECT_FALSE(has(run({"status"}).out, "warning"));
}

// The size of a separate file system for the cache, and whether the update fits.
struct small_volume {
  const char *size;
  bool fits;
};

class RoomOfSmallVolume : public CachedElement, public testing::WithParamInterface<small_volume> {
 protected:
  void SetUp() override {
    ASSERT_EQ(std::system((enter_ + " true").c_str()), 0)
        << "takes root, or a user who may mount in a namespace of his own";
    put("Wlan/a", "ssid=a");
    commit_source();
    put("Wlan/a", "ssid=b");
    publish_source();
    const auto recursively = std::filesystem::copy_options::recursive;
    std::filesystem::copy(dir_ / "device/writable", saved_, recursively);
  }
  // Runs zotconf on a copy of the cache on that file system. Returns its output.
  [[nodiscard]] std::string told_by(const std::string &words) const {
    std::string script = "mount -t tmpfs -o size=" + std::string(GetParam().size) + " none '" +
                         mount_point_ + "' && cp -r '" + saved_ + "'/. '" + mount_point_ + "' && ";
    for (const auto &[name, value] : variables()) {
      script += name + "='" + value + "' ";
    }
    script += "'" ZOTCONF_PROGRAM "' " + words + " >'" + (dir_ / "told") + "' 2>&1";
    write_bytes(dir_ / "script", script);
    EXPECT_EQ(std::system((enter_ + " sh '" + (dir_ / "script") + "'").c_str()), 0);
    return read_bytes(dir_ / "told");
  }

  const std::string enter_ =
      ::geteuid() == 0 ? "unshare --mount" : "unshare --map-root-user --mount";
  const std::string saved_ = dir_ / "saved";
  const std::string mount_point_ = dir_ / "device/writable";
};

TEST_P(RoomOfSmallVolume, IsWarnedOfWhenAnUpdateDoesNotFitBesideTheOldFiles) {
  EXPECT_EQ(json_value(told_by("status --json"))["room"]["fits_beside"].flag(), GetParam().fits);
  EXPECT_EQ(has(told_by("status"), std::string("\nwarning: ") + zotconf::room_warning + "\n"),
            !GetParam().fits);
}

TEST_P(RoomOfSmallVolume, IsWhatTheCommitFinds) {
  const std::string told =
      told_by("cycle --commit --log-level warn --index " + std::string(index_));
  EXPECT_EQ(has(told, "No room for the new files beside the old ones"), !GetParam().fits) << told;
}

// The cache takes three pages, and the update needs three more.
INSTANTIATE_TEST_SUITE_P(Sizes, RoomOfSmallVolume,
                         testing::Values(small_volume{"24k", true}, small_volume{"20k", false}));

TEST_F(RoomOfCache, IsNotToldWithoutAConfigurationInForce) {
  std::filesystem::remove(conf("config/Wlan/a/1"));
  EXPECT_TRUE(told().is_null());
}

}  // namespace
}  // namespace zot::test
