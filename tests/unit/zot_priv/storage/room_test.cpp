// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/room.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cstdint>
#include <string>

#include "storage_records.hpp"
#include "tests/cycle/cycle_checks.hpp"
#include "utilities/owner.hpp"
#include "zot_priv/storage/directory_walk.hpp"

namespace {
using namespace zot::test;
using zot::room_check;

constexpr std::uint64_t gibibyte = std::uint64_t{1} << 30;

int commit_elsewhere(zot_ctx *, const char *, zot_list *) {
  return ZOT_OK;
}

class Room : public testing::Test {
 protected:
  Room() : gpbs_(zot::make_gpb_list(e.handle())) {
    k_.data_len = 1;
    struct statvfs found {};
    ::statvfs(e.conf_root().c_str(), &found);
    block_ = found.f_frsize;
    struct stat knowledge {};
    ::stat(knowledge_of(e).c_str(), &knowledge);
    folder_ = static_cast<std::uint64_t>(knowledge.st_blocks) * 512;
  }
  void add(const char *category, std::int32_t number, const char *key, std::uint32_t size) {
    const std::string path = std::string("/") + category + "/" + key + "/1";
    zot_gpb *const gpb = zot_priv_gpb_new(path.c_str(), size, number, "", key, 1);
    list_add_tail(gpbs_.get(), &gpb->node);
  }
  void add_more_than_there_is() {
    for (int each = 0; each < 100000; ++each) {
      add("Vpn", ZOT_CAT_VPN, "huge", INT32_MAX);
    }
  }
  // The root folder is on a disk, where folders take space, unlike a temporary one in memory.
  void take_folders_on_disk() {
    std::filesystem::remove_all(knowledge_of(e));
    std::filesystem::create_directory_symlink("/", knowledge_of(e));
    struct stat root {};
    ASSERT_EQ(::stat("/", &root), 0);
    folder_ = static_cast<std::uint64_t>(root.st_blocks) * 512;
    unit_ = std::max(folder_, block_);
  }
  [[nodiscard]] std::uint64_t in_units(std::uint64_t size) const {
    return (size + unit_ - 1) / unit_ * unit_;
  }
  [[nodiscard]] room_check look() const { return zot::look_for_room(*e.handle(), k_, gpbs_.get()); }

  element e;
  zot::gpb_list_owner gpbs_;
  zot_k k_{};
  std::uint64_t block_ = 0;
  std::uint64_t folder_ = 0;
  std::uint64_t unit_ = 0;
};

// A missing file is kept as a folder.
TEST_F(Room, IsNeededForKAndItsFoldersAlone) {
  const room_check check = look();
  EXPECT_EQ(check.fits, room_check::beside);
  EXPECT_EQ(check.needed.bytes, 2 * block_ + (2 + 7) * folder_);
  EXPECT_EQ(check.needed.files, 2U + 2 + 7);
}

TEST_F(Room, IsNeededInBlocksForEachFileAndForEachFolder) {
  const room_check without = look();
  add("Wlan", ZOT_CAT_WLAN, "a", 1);
  add("Wlan", ZOT_CAT_WLAN, "b", static_cast<std::uint32_t>(block_));
  add("Zone", ZOT_CAT_ZONE, "b", static_cast<std::uint32_t>(block_) + 1);
  const room_check check = look();
  EXPECT_EQ(check.needed.bytes - without.needed.bytes, 4 * block_ + 5 * folder_);
  EXPECT_EQ(check.needed.files - without.needed.files, 3U + 5);
}

TEST_F(Room, IsNeededForFewerFoldersWhenThereAreFilesToKeep) {
  const room_check without = look();
  write_bytes(knowledge_of(e) + "/subsys.k", "K");
  EXPECT_EQ(without.needed.bytes - look().needed.bytes, folder_);
  EXPECT_EQ(look().needed.files, without.needed.files);
}

TEST_F(Room, IsNeededForTheNamesInALargeFolder) {
  constexpr std::uint64_t keys = 1000;
  const room_check without = look();
  for (std::uint64_t key = 0; key < keys; ++key) {
    add("Wlan", ZOT_CAT_WLAN, std::to_string(key).c_str(), 1);
  }
  const std::uint64_t counted = keys * block_ + (1 + keys) * folder_;
  const std::uint64_t for_names = look().needed.bytes - without.needed.bytes - counted;
  if (folder_ == 0) {
    EXPECT_EQ(for_names, 0U);  // as in memory, where folders take no space
  } else {
    EXPECT_GE(for_names, keys * 12);
  }
}

// Its blocks may be only half full, and the first one counts with the folder itself.
TEST_F(Room, ForNamesIsThatOfTheBlocksBeyondTheFirst) {
  take_folders_on_disk();
  const room_check without = look();
  constexpr std::uint64_t keys = 1000;
  std::uint64_t names = 12 + 4;  // "Wlan"
  for (std::uint64_t key = 0; key < keys; ++key) {
    const std::string name = std::to_string(key);
    add("Wlan", ZOT_CAT_WLAN, name.c_str(), 1);
    names += 12 + name.size();
  }
  const std::uint64_t counted = keys * unit_ + (1 + keys) * folder_;
  EXPECT_EQ(look().needed.bytes - without.needed.bytes - counted,
            folder_ != 0 ? in_units(2 * names) - unit_ : 0);
}

// A path may have more components than the three that identify it.
TEST_F(Room, IsNeededForEveryFolderOfAPath) {
  const room_check without = look();
  for (const char *const path : {"/Wlan/a/1/x/y", "/Wlan/a/1/x/z", "/Wlan/b/1/x/y"}) {
    list_add_tail(gpbs_.get(), &zot_priv_gpb_new(path, 1, ZOT_CAT_WLAN, "", "a", 1)->node);
  }
  const room_check check = look();
  EXPECT_EQ(check.needed.bytes - without.needed.bytes, 3 * block_ + (1 + 3 + 3) * folder_);
  EXPECT_EQ(check.needed.files - without.needed.files, 3U + 7);
}

TEST_F(Room, IsNotThereForMoreThanTheDiskHas) {
  const room_check without = look();
  for (std::uint64_t left = 0; left < without.available.bytes + 4 * gibibyte; left += gibibyte) {
    add("Vpn", ZOT_CAT_VPN, "huge", gibibyte);
  }
  const room_check check = look();
  EXPECT_EQ(check.fits, room_check::none);
  EXPECT_GT(check.needed.bytes, check.available.bytes);
}

TEST_F(Room, OfTheFilesInForceCountsWhenTheyGoFirst) {
  constexpr std::uint64_t taken = 512 * (std::uint64_t{1} << 20);
  write_bytes(e.conf_root() + "config/Wlan/a/1", "");
  zot::descriptor file(::open((e.conf_root() + "config/Wlan/a/1").c_str(), O_WRONLY));
  ASSERT_EQ(::posix_fallocate(file.get(), 0, taken), 0);
  file.close();
  const std::uint64_t wanted = look().available.bytes + taken / 2;
  for (std::uint64_t left = wanted; left > 0; left -= std::min(left, gibibyte)) {
    add("Vpn", ZOT_CAT_VPN, "huge", static_cast<std::uint32_t>(std::min(left, gibibyte)));
  }
  const room_check check = look();
  EXPECT_EQ(check.fits, room_check::in_place);
  EXPECT_GE(check.available.bytes, check.needed.bytes);
}

TEST_F(Room, OfFoldersThatAreNestedTooDeepDoesNotCount) {
  using zot::directory_walk::max_depth;
  std::string folder = e.conf_root() + "config";
  for (int depth = 0; depth < max_depth + 3; ++depth) {
    folder += "/d";
  }
  std::filesystem::create_directories(folder);
  add_more_than_there_is();
  EXPECT_EQ(look().reclaimed.files, max_depth + 1U);
}

TEST_F(Room, OfAFileInForceWithASecondNameDoesNotCount) {
  const std::string path = e.conf_root() + "config/Wlan/a/1";
  write_bytes(path, std::string(static_cast<std::size_t>(10 * block_), 'a'));
  add_more_than_there_is();
  const std::uint64_t alone = look().reclaimed.files;
  std::filesystem::create_hard_link(path, e.dir() / "second");
  EXPECT_EQ(alone - look().reclaimed.files, 1U);
}

TEST_F(Room, OfAFileInForceThatIsHeldOpenDoesNotCount) {
  const std::string path = e.conf_root() + "config/Wlan/a/1";
  write_bytes(path, "a");
  add_more_than_there_is();
  const std::uint64_t alone = look().reclaimed.files;
  const zot::descriptor held(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(alone - look().reclaimed.files, 1U);
}

// As on a file system with clusters that are larger than the blocks that it counts in.
TEST_F(Room, IsNeededInUnitsOfWhatAFolderTakes) {
  for (int each = 0; each < 500; ++each) {
    write_bytes(knowledge_of(e) + "/" + std::string(100, 'n') + std::to_string(each), "");
  }
  struct stat knowledge {};
  ::stat(knowledge_of(e).c_str(), &knowledge);
  const std::uint64_t unit = static_cast<std::uint64_t>(knowledge.st_blocks) * 512;
  EXPECT_EQ(look().needed.bytes, 2 * std::max(unit, block_) + (2 + 7) * unit);
}

// Where folders take no space, nothing is reserved.
TEST_F(Room, IsNeededWithAReserveWhenTheFilesInForceGoFirst) {
  take_folders_on_disk();
  const room_check without = look();
  std::uint64_t files = 0;
  ASSERT_LT(without.available.bytes, UINT64_MAX);
  for (; files * gibibyte <= without.available.bytes; ++files) {
    add("Vpn", ZOT_CAT_VPN, "huge", gibibyte);
  }
  const room_check check = look();
  const std::uint64_t counted = files * in_units(gibibyte) + 2 * folder_;
  EXPECT_EQ(check.needed.files - without.needed.files, files + 2 + (folder_ != 0 ? 16 : 0));
  EXPECT_EQ(check.needed.bytes - without.needed.bytes,
            counted + (folder_ != 0 ? (16U << 20) + 16 * unit_ : 0));
}

TEST_F(Room, ForFilesThatAnAdapterCommitsIsItsOwnAffair) {
  const room_check without = look();
  add_more_than_there_is();
  e.handle()->fns.commit_gpb = commit_elsewhere;
  EXPECT_EQ(look().fits, room_check::beside);
  EXPECT_EQ(look().needed.bytes, without.needed.bytes);
}

TEST_F(Room, InAFolderThatIsGoneIsNotJudged) {
  std::filesystem::remove_all(e.conf_root());
  EXPECT_EQ(look().fits, room_check::beside);
}

}  // namespace
