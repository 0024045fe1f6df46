// SPDX-License-Identifier: Apache-2.0
// What downloads leave in the scratch directory: what stays, and what is removed when.
#include "zot_priv/storage/leftovers.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/media.hpp"
#include "tests/unit/zot_priv/storage/scratch_records.hpp"

namespace {

using namespace zot::test;
namespace fs = std::filesystem;

// Files below the GPB directory, and a list of the small publication.
struct listed_files {
  listed_files() {
    at.gpbs = make_list_of(at.tested.handle(), at.k.get());
    for (const auto &[path, bytes] : at.published.files()) {
      write_bytes(at / ("config" + path), bytes);
    }
  }

  void run() {
    zot::scratch_watch watch;
    ASSERT_TRUE(watch.begin(*at.tested.handle()));
    ASSERT_TRUE(watch.end(*at.tested.handle()));
    zot::remove_unlisted_files(*at.tested.handle(), at.gpbs.get(), watch.found());
  }
  [[nodiscard]] std::vector<std::string> files() const { return tree(at / "config"); }

  scratch at;
  std::vector<std::string> listed = {"Wlan/office/5", "Zone/hq/1"};
};

TEST(RemoveUnlistedFiles, ListedFilesStay) {
  listed_files files;
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveUnlistedFiles, OtherVersionsOfAListedObjectGo) {
  listed_files files;
  write_bytes(files.at / "config/Wlan/office/4", "earlier");
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveUnlistedFiles, FolderIsOpenedToItsOwnerToRemoveWhatIsInIt) {
  listed_files files;
  write_bytes(files.at / "config/Wlan/office/4", "earlier");
  ASSERT_EQ(::chmod((files.at / "config/Wlan/office").c_str(), 0550), 0);
  zot::remove_unlisted_files(*files.at.tested.handle(), files.at.gpbs.get(),
                             {.files = 3, .has_empty_directory = false});
  EXPECT_EQ(files.files(), files.listed);
  EXPECT_EQ(mode_of(files.at / "config/Wlan/office"), 0750U);
}

TEST(RemoveUnlistedFiles, DirectoriesThatBecomeEmptyGo) {
  listed_files files;
  write_bytes(files.at / "config/Vlan/gone/1", "earlier");
  write_bytes(files.at / "config/Wlan/gone/1", "earlier");
  files.run();
  EXPECT_FALSE(exists(files.at / "config/Vlan"));
  EXPECT_FALSE(exists(files.at / "config/Wlan/gone"));
  EXPECT_TRUE(exists(files.at / "config/Wlan/office"));
}

TEST(RemoveUnlistedFiles, FilesAboveTheObjectsGoToo) {
  listed_files files;
  write_bytes(files.at / "config/stray", "stray");
  write_bytes(files.at / "config/Wlan/stray", "stray");
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveUnlistedFiles, FilesBesideTheGpbDirectoryStay) {
  listed_files files;
  files.run();
  EXPECT_TRUE(exists(files.at / "subsys.k"));
  EXPECT_TRUE(exists(files.at / "subsys.checksum"));
}

TEST(RemoveUnlistedFiles, NothingGoesWhileAListedFileIsMissing) {
  listed_files files;
  write_bytes(files.at / "config/Vlan/gone/1", "earlier");
  fs::remove(files.at / "config/Zone/hq/1");
  files.run();
  EXPECT_TRUE(exists(files.at / "config/Vlan/gone/1"));
}

TEST(RemoveUnlistedFiles, EmptyListLeavesNoFile) {
  listed_files files;
  files.at.gpbs = zot::make_gpb_list(files.at.tested.handle());
  files.run();
  EXPECT_EQ(files.files(), std::vector<std::string>{});
}

TEST(RemoveUnlistedFiles, MissingGpbDirectoryIsNoFault) {
  listed_files files;
  files.at.gpbs = zot::make_gpb_list(files.at.tested.handle());
  fs::remove_all(files.at / "config");
  files.run();
  EXPECT_FALSE(exists(files.at / "config"));
}

void list_again(listed_files &files, const char *path) {
  for (const zot_gpb &gpb : zot::gpb_range(files.at.gpbs.get())) {
    if (std::strcmp(gpb.path, path) == 0) {
      zot_gpb *const twice =
          zot_priv_gpb_new(gpb.path, gpb.size, gpb.category, gpb.checksum, gpb.key, gpb.version);
      list_add_tail(files.at.gpbs.get(), &twice->node);
      return;
    }
  }
  throw std::runtime_error(path);
}

TEST(RemoveUnlistedFiles, ExtraFileGoesThoughAsManyAreListedAsFound) {
  listed_files files;
  list_again(files, "/Wlan/office/5");
  ASSERT_EQ(length_of(files.at.gpbs.get()), 3U);
  write_bytes(files.at / "config/Zone/hq/0", "earlier");
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveUnlistedFiles, ExtraFileGoesBesideAnEntryThatFollowsItsLike) {
  listed_files files;
  files.at.gpbs = make_list_of(files.at.tested.handle(), files.at.k.get());
  zot_list *const first = files.at.gpbs->next;
  list_again(files, "/Wlan/office/5");
  zot_list *const twice = files.at.gpbs->prev;
  list_del(twice);
  list_add_tail(first->next, twice);
  write_bytes(files.at / "config/Zone/hq/0", "earlier");
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

void list_under(listed_files &files, const char *path, const char *key) {
  zot_gpb *const gpb = zot_priv_gpb_new(path, 100, ZOT_CAT_ZONE, "", key, 1);
  list_add_tail(files.at.gpbs.get(), &gpb->node);
}

// A path that leads to a file which another entry also names.
TEST(RemoveUnlistedFiles, ExtraFileGoesBesideAPathThatLeadsElsewhere) {
  for (const char *const path :
       {"/Zone/zz/../hq/1", "/Zone/./hq/1", "/Zone/hq/./1", "//Zone/hq/1", "/Zone/hq//1"}) {
    listed_files files;
    list_under(files, path, "zz");
    write_bytes(files.at / "config/Zone/zz/1", "extra");
    files.run();
    EXPECT_EQ(files.files(), files.listed) << path;
  }
}

TEST(RemoveUnlistedFiles, ExtraFileGoesBesideAnEntryOfAnotherFolder) {
  listed_files files;
  list_under(files, "/../gpb.tgz", "zz");
  write_bytes(files.at / "gpb.tgz", "archive");
  write_bytes(files.at / "config/Zone/zz/1", "extra");
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveUnlistedFiles, FileThatIsListedTwiceStays) {
  listed_files files;
  list_again(files, "/Wlan/office/5");
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveUnlistedFiles, EmptyDirectoriesGoThoughNoFileDoes) {
  listed_files files;
  fs::create_directories(files.at / "config/Vlan/gone");
  fs::create_directories(files.at / "config/Wlan/gone");
  files.run();
  EXPECT_FALSE(exists(files.at / "config/Vlan"));
  EXPECT_FALSE(exists(files.at / "config/Wlan/gone"));
  EXPECT_EQ(files.files(), files.listed);
}

// The census is from before: a file that came later shows whether the directory was searched.
TEST(RemoveUnlistedFiles, CensusOfTheListedFilesRemovesNothing) {
  listed_files files;
  write_bytes(files.at / "config/Zone/hq/0", "later");
  zot::remove_unlisted_files(*files.at.tested.handle(), files.at.gpbs.get(),
                             {.files = 2, .has_empty_directory = false});
  EXPECT_TRUE(exists(files.at / "config/Zone/hq/0"));
}

TEST(RemoveUnlistedFiles, CensusWithAnEmptyDirectoryHasTheRestLookedFor) {
  listed_files files;
  write_bytes(files.at / "config/Zone/hq/0", "later");
  zot::remove_unlisted_files(*files.at.tested.handle(), files.at.gpbs.get(),
                             {.files = 2, .has_empty_directory = true});
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveUnlistedFiles, CensusOfMoreFilesHasTheRestLookedFor) {
  listed_files files;
  write_bytes(files.at / "config/Zone/hq/0", "extra");
  zot::remove_unlisted_files(*files.at.tested.handle(), files.at.gpbs.get(),
                             {.files = 3, .has_empty_directory = false});
  EXPECT_EQ(files.files(), files.listed);
}

struct after_an_archive : listed_files {
  void run() { zot::remove_strangers(*at.tested.handle(), *at.k); }
};

TEST(RemoveStrangers, FilesThatKNamesStayThoughOneIsCutShort) {
  after_an_archive files;
  write_bytes(files.at / "config/Zone/hq/1", "");
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveStrangers, WhatKDoesNotNameGoes) {
  after_an_archive files;
  write_bytes(files.at / "config/Vlan/other/1", "brought along");
  write_bytes(files.at / "config/Wlan/office/6", "brought along");
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveStrangers, FileThatIsLargerThanStatedGoes) {
  after_an_archive files;
  write_bytes(files.at / "config/Zone/hq/1", std::string(100000, 'z'));
  files.run();
  EXPECT_EQ(files.files(), std::vector<std::string>{"Wlan/office/5"});
}

TEST(RemoveStrangers, FilesThatCachedRequestsAreAnsweredFromStay) {
  after_an_archive files;
  files.at.remote.publish(small_publication().put("Radio", "r5", 3, "radio"));
  ASSERT_EQ(files.at.tested.get().status, ZOT_OK);
  write_bytes(files.at / "config/Vlan/other/1", "brought along");
  files.run();
  EXPECT_EQ(files.files(), (std::vector<std::string>{"Radio/r5/3", "Wlan/office/5", "Zone/hq/1"}));
}

TEST(RemoveStrangers, FilesThatCachedRequestsFindElsewhereGo) {
  after_an_archive files;
  files.at.remote.publish(small_publication().put("Radio", "r5", 3, "radio"));
  ASSERT_EQ(files.at.tested.get().status, ZOT_OK);
  files.at.tested.handle()->ret.root = files.at.tested.handle()->conf_root;
  files.run();
  EXPECT_EQ(files.files(), files.listed);
}

TEST(RemoveStrangers, KWithoutAListLeavesNoFile) {
  after_an_archive files;
  files.at.k = zot::make_k();
  files.run();
  EXPECT_EQ(files.files(), std::vector<std::string>{});
}

TEST(MakeRoom, NothingGoesWhereThereIsRoom) {
  listed_files files;
  write_bytes(files.at / "gpb.tgz", "archive");
  write_bytes(files.at / "subsys.k.tmp", "half a K");
  const auto before = tree(files.at.root);
  zot::make_room(*files.at.tested.handle());
  EXPECT_EQ(tree(files.at.root), before);
}

class FullMedium : public testing::Test {
 protected:
  FullMedium() {
    write_bytes(files.at / "gpb.tgz", "archive");
    write_bytes(files.at / "subsys.k.tmp", "half a K");
  }
  FullMedium(const FullMedium &) = delete;
  FullMedium &operator=(const FullMedium &) = delete;
  ~FullMedium() override { media().change_figures = nullptr; }

  // Whether a get removes what earlier ones have left, on a medium with so many blocks and files.
  bool is_cleared(fsblkcnt_t blocks, fsblkcnt_t free_blocks, fsfilcnt_t all,
                  fsfilcnt_t free_files) {
    media().change_figures = [=](struct statvfs &medium) {
      medium.f_frsize = 4096;
      medium.f_blocks = blocks;
      medium.f_bavail = free_blocks;
      medium.f_files = all;
      medium.f_favail = free_files;
    };
    zot::make_room(*files.at.tested.handle());
    return !exists(files.at / "gpb.tgz") && !exists(files.at / "subsys.k.tmp");
  }

  listed_files files;
};

TEST_F(FullMedium, IsClearedWhenLessThan64KiBAreFree) {
  EXPECT_FALSE(is_cleared(1000, 16, 1000, 1000));
  EXPECT_TRUE(is_cleared(1000, 15, 1000, 1000));
}

TEST_F(FullMedium, IsClearedWhenFewerThan8FilesCanBeCreated) {
  EXPECT_FALSE(is_cleared(1000, 1000, 1000, 8));
  EXPECT_TRUE(is_cleared(1000, 1000, 1000, 7));
}

TEST_F(FullMedium, IsNoneThatHasNoLimits) {
  EXPECT_FALSE(is_cleared(0, 0, 0, 0));
}

TEST(ClearDownloadTargets, PlainFilesStay) {
  listed_files files;
  const auto before = tree(files.at.root);
  zot::clear_download_targets(*files.at.tested.handle());
  EXPECT_EQ(tree(files.at.root), before);
}

TEST(ClearDownloadTargets, LinkGoesAndWhatItNamesStays) {
  listed_files files;
  fs::create_symlink(files.at.sentinel + "/kept", files.at / "gpb.tgz");
  zot::clear_download_targets(*files.at.tested.handle());
  EXPECT_FALSE(fs::is_symlink(files.at / "gpb.tgz"));
  EXPECT_EQ(read_bytes(files.at.sentinel + "/kept"), "kept");
}

TEST(ClearDownloadTargets, FifoGoesWithoutWaiting) {
  listed_files files;
  fs::remove(files.at / "subsys.k");
  ASSERT_EQ(::mkfifo((files.at / "subsys.k").c_str(), 0600), 0);
  zot::clear_download_targets(*files.at.tested.handle());
  EXPECT_FALSE(exists(files.at / "subsys.k"));
}

}  // namespace
