// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/undo.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/cycle/cycle_checks.hpp"
#include "tests/support/capabilities.hpp"
#include "tests/support/element.hpp"
#include "tests/support/media.hpp"

namespace {
using namespace zot::test;

namespace fs = std::filesystem;
using zot::gpb_protection;
using file_contents = std::map<std::string, std::string>;

class Undo : public testing::Test {
 protected:
  Undo() {
    install_current(e, first_configuration());
    install_last(e, third_configuration());
    before = contents(root());
  }
  bool begin(gpb_protection gpbs = gpb_protection::kept) {
    return zot::begin_undo(*e.handle(), gpbs);
  }
  bool restore() { return zot::restore_from_undo(*e.handle()); }
  // What a commit does between begin and end of the undo folder.
  void replace_everything() {
    for (const char *const name : {"prev_subsys.k", "prev_subsys.checksum"}) {
      fs::remove(knowledge(name));
    }
    fs::rename(knowledge("subsys.k"), knowledge("prev_subsys.k"));
    fs::rename(knowledge("subsys.checksum"), knowledge("prev_subsys.checksum"));
    second_configuration().install_cache(root());
    write_bytes(knowledge("corrupted.k"), "new");
  }
  [[nodiscard]] std::string root() const { return e.conf_root(); }
  [[nodiscard]] std::string knowledge(const std::string &name) const {
    return knowledge_of(e) + "/" + name;
  }
  [[nodiscard]] std::string undo(const std::string &name) const { return root() + "undo/" + name; }

  element e;
  file_contents before;
};

TEST_F(Undo, KeepsEveryFileInForce) {
  ASSERT_TRUE(begin());
  EXPECT_EQ(read_bytes(undo("subsys.k")), first_configuration().k_text());
  EXPECT_EQ(read_bytes(undo("subsys.checksum")), first_configuration().checksum_text());
  EXPECT_EQ(read_bytes(undo("prev_subsys.k")), third_configuration().k_text());
  EXPECT_EQ(read_bytes(undo("config/Wlan/guest/1")), "guest one");
  EXPECT_TRUE(fs::is_directory(undo("corrupted.k.absent")));
  EXPECT_TRUE(fs::is_directory(undo("corrupted.checksum.absent")));
}

TEST_F(Undo, IsAFolderWithTheUsualPermissions) {
  const mode_t mask = ::umask(027);
  const bool begun = begin();
  ::umask(mask);
  ASSERT_TRUE(begun);
  EXPECT_EQ(fs::status(undo("")).permissions(), fs::perms{0750});
}

TEST_F(Undo, TakesNoSecondCopy) {
  ASSERT_TRUE(begin());
  EXPECT_EQ(fs::hard_link_count(undo("subsys.k")), 2U);
  EXPECT_FALSE(exists(root() + "config"));
}

TEST_F(Undo, LeavesGpbFilesThatAreRemovedFirst) {
  ASSERT_TRUE(begin(gpb_protection::removed_first));
  EXPECT_TRUE(exists(root() + "config/Wlan/guest/1"));
  EXPECT_FALSE(exists(undo("config")));
  EXPECT_FALSE(exists(undo("config.absent")));
}

TEST_F(Undo, PutsEverythingBack) {
  ASSERT_TRUE(begin());
  replace_everything();
  ASSERT_TRUE(restore());
  EXPECT_EQ(contents(root()), before);
  EXPECT_FALSE(zot::has_undo(*e.handle()));
  EXPECT_FALSE(zot::has_undo_leftovers(*e.handle()));
}

TEST_F(Undo, PutsBackThatNothingWasThere) {
  fs::remove_all(knowledge_of(e));
  fs::remove_all(root() + "config");
  fs::create_directories(knowledge_of(e));
  ASSERT_TRUE(begin());
  EXPECT_TRUE(fs::is_directory(undo("config.absent")));
  second_configuration().install_cache(root());
  ASSERT_TRUE(restore());
  EXPECT_TRUE(contents(root()).empty());
  EXPECT_FALSE(exists(root() + "config"));
}

TEST_F(Undo, PutsBackNothingThatHasNotChanged) {
  ASSERT_TRUE(begin());
  ASSERT_TRUE(restore());
  EXPECT_EQ(contents(root()), before);
}

// A folder in place of a K file is damage; the commit replaces it.
TEST_F(Undo, RemovesWhatTookThePlaceOfAFolder) {
  fs::remove(knowledge("prev_subsys.k"));
  write_bytes(knowledge("prev_subsys.k/inside"), "damage");
  ASSERT_TRUE(begin());
  fs::remove_all(knowledge("prev_subsys.k"));
  write_bytes(knowledge("prev_subsys.k"), "new");
  ASSERT_TRUE(restore());
  EXPECT_FALSE(exists(knowledge("prev_subsys.k")));
}

TEST_F(Undo, ReplacesAFolderThatTookThePlaceOfAFile) {
  ASSERT_TRUE(begin());
  fs::remove(knowledge("subsys.k"));
  write_bytes(knowledge("subsys.k/inside"), "damage");
  ASSERT_TRUE(restore());
  EXPECT_EQ(contents(root()), before);
}

// A restoration may stop at any point: each entry may be restored or not.
TEST_F(Undo, CanBeCutOffAnywhereAndPutBackAgain) {
  const std::vector<std::function<void()>> put_back = {
      [&] { fs::rename(undo("subsys.k"), knowledge("subsys.k")); },
      [&] { fs::rename(undo("prev_subsys.checksum"), knowledge("prev_subsys.checksum")); },
      [&] { fs::remove(knowledge("corrupted.k")); },
      [&] {
        fs::remove(knowledge("corrupted.k"));
        fs::remove(undo("corrupted.k.absent"));
      },
      [&] { fs::remove_all(root() + "config"); },
      [&] {
        fs::remove_all(root() + "config");
        fs::rename(undo("config"), root() + "config");
      }};
  for (unsigned subset = 0; subset < 1U << put_back.size(); ++subset) {
    ASSERT_TRUE(begin());
    replace_everything();
    for (std::size_t step = 0; step < put_back.size(); ++step) {
      const bool is_superseded =
          (step == 2 && (subset >> 3 & 1U) != 0) || (step == 4 && (subset >> 5 & 1U) != 0);
      if ((subset >> step & 1U) != 0 && !is_superseded) {
        put_back[step]();
      }
    }
    ASSERT_TRUE(restore());
    ASSERT_EQ(contents(root()), before) << "subset " << subset;
  }
}

TEST_F(Undo, OfAnEmptyFolderChangesNothing) {
  fs::create_directory(root() + "undo");
  ASSERT_TRUE(restore());
  EXPECT_EQ(contents(root()), before);
  EXPECT_FALSE(exists(root() + "undo"));
}

TEST_F(Undo, IsRetiredInOneStepAndRemovedAfterwards) {
  ASSERT_TRUE(begin());
  second_configuration().install_cache(root());
  ASSERT_TRUE(zot::retire_undo(*e.handle()));
  EXPECT_FALSE(zot::has_undo(*e.handle()));
  EXPECT_TRUE(zot::has_undo_leftovers(*e.handle()));
  zot::remove_undo_leftovers(*e.handle());
  EXPECT_FALSE(zot::has_undo_leftovers(*e.handle()));
  EXPECT_EQ(read_bytes(knowledge("subsys.k")), second_configuration().k_text());
}

TEST_F(Undo, LeftoversAreRemovedBeforeTheNextOne) {
  write_bytes(root() + "undo.new/subsys.k", "left");
  write_bytes(root() + "undo.old/config/Wlan/guest/1", "left");
  EXPECT_FALSE(begin());
  zot::remove_undo_leftovers(*e.handle());
  ASSERT_TRUE(begin());
  EXPECT_EQ(read_bytes(undo("subsys.k")), first_configuration().k_text());
  EXPECT_FALSE(zot::has_undo_leftovers(*e.handle()));
}

TEST_F(Undo, CannotBeBegunWhereItsFolderTakesNoMark) {
  for (const auto &file : fs::directory_iterator(knowledge_of(e))) {
    fs::remove(file);
  }
  EXPECT_TRUE(holds_without_capabilities([&] {
    ::umask(0300);  // nothing can be created in a new folder
    return !begin();
  }));
  EXPECT_FALSE(zot::has_undo(*e.handle()));
  EXPECT_FALSE(zot::has_undo_leftovers(*e.handle()));
  EXPECT_TRUE(exists(root() + "config"));
}

TEST_F(Undo, CannotBeBegunWithoutACache) {
  fs::remove_all(root());
  EXPECT_FALSE(begin());
  EXPECT_FALSE(restore());
  EXPECT_FALSE(zot::retire_undo(*e.handle()));
}

// As on a medium that is no longer writable.
TEST_F(Undo, IsLoadedFromWhereItWasNotPutBack) {
  ASSERT_TRUE(begin());
  replace_everything();
  ASSERT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_CURRENT).k), first_configuration().k_text());
  EXPECT_EQ(slot_of(e, ZOT_SLOT_CURRENT).k->root, root() + "/undo");
}

TEST_F(Undo, IsLoadedFromWhereItWasPutBackInPart) {
  ASSERT_TRUE(begin());
  replace_everything();
  for (const char *const name : {"subsys.k", "subsys.checksum"}) {
    fs::rename(undo(name), knowledge(name));
  }
  ASSERT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_CURRENT).k), first_configuration().k_text());
}

TEST_F(Undo, IsLoadedFromBothPlacesWhenOneFileOfTheKWasPutBack) {
  ASSERT_TRUE(begin());
  replace_everything();
  fs::rename(undo("subsys.k"), knowledge("subsys.k"));
  ASSERT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_OK) << e.error_text();
  EXPECT_EQ(text_of(slot_of(e, ZOT_SLOT_CURRENT).k), first_configuration().k_text());
}

TEST_F(Undo, GivesWayWhenItIsNoFolder) {
  write_bytes(root() + "undo", "somebody's file");
  ASSERT_TRUE(zot::has_undo(*e.handle()));
  EXPECT_TRUE(restore());
  EXPECT_FALSE(zot::has_undo(*e.handle()));
  EXPECT_TRUE(begin());
}

// Later lookups fail with ENOENT, which must not replace the reason.
TEST_F(Undo, SaysWhatCouldNotBePutBack) {
  ASSERT_TRUE(begin());
  fs::remove(knowledge("subsys.k"));
  fs::create_directories(knowledge("subsys.k"));
  fs::remove(undo("subsys.k"));
  fs::create_directories(undo("subsys.k/within"));
  fs::remove_all(knowledge("subsys.k"));
  write_bytes(knowledge("subsys.k"), "in the way");
  errno = 0;
  EXPECT_FALSE(restore());
  EXPECT_EQ(errno, ENOTDIR);
}

// The K files are on another file system, so no hard links to them are possible here.
class UndoOfTwoFileSystems : public Undo {
 protected:
  UndoOfTwoFileSystems() {
    fs::copy(knowledge_of(e), elsewhere, fs::copy_options::recursive);
    fs::remove_all(knowledge_of(e));
    fs::create_directory_symlink(elsewhere, knowledge_of(e));
  }
  ~UndoOfTwoFileSystems() override {
    media().broken = 0;
    fs::remove_all(elsewhere);
  }
  static dev_t device_of(const std::string &path) {
    struct stat found {};
    ::stat(path.c_str(), &found);
    return found.st_dev;
  }
  template <class Body>
  void expect_both_synchronised_by(Body body) const {
    media().synchronised.clear();
    ASSERT_TRUE(body());
    for (const std::string &each : {root(), elsewhere}) {
      EXPECT_EQ(std::ranges::count(media().synchronised, device_of(each)), 1) << each;
    }
  }

  const std::string elsewhere = "/dev/shm/" + fs::path(e.dir().path()).filename().string();
};

TEST_F(Undo, OfOneFileSystemSynchronisesItOnce) {
  media().synchronised.clear();
  ASSERT_TRUE(zot::cache_media(*e.handle()).sync());
  EXPECT_EQ(media().synchronised.size(), 1U);
}

TEST_F(UndoOfTwoFileSystems, SynchronisesBothBeforeTheOldFilesAreGivenUp) {
  ASSERT_NE(device_of(root()), device_of(elsewhere));
  expect_both_synchronised_by([&] { return zot::cache_media(*e.handle()).sync(); });
}

TEST_F(UndoOfTwoFileSystems, SynchronisesBothBeforeItsFolderGoes) {
  ASSERT_TRUE(begin());
  expect_both_synchronised_by([&] { return restore(); });
}

TEST_F(UndoOfTwoFileSystems, CountsUntilItsRetirementIsOnTheMedium) {
  ASSERT_TRUE(begin());
  media().broken = device_of(root());
  EXPECT_FALSE(zot::retire_undo(*e.handle()));
  EXPECT_EQ(errno, EIO);
  media().broken = 0;
  EXPECT_TRUE(zot::has_undo(*e.handle()));
  EXPECT_FALSE(zot::has_undo_leftovers(*e.handle()));
  EXPECT_TRUE(restore());
  EXPECT_EQ(read_bytes(elsewhere + "/subsys.k"), first_configuration().k_text());
}

// The folder keeps a file as long as the restored one may be lost.
TEST_F(UndoOfTwoFileSystems, KeepsEverythingThatIsNotOnItsMedium) {
  ASSERT_TRUE(begin());
  write_bytes(elsewhere + "/subsys.k", "new");
  write_bytes(elsewhere + "/corrupted.k", "new");
  media().broken = device_of(elsewhere);
  EXPECT_FALSE(restore());
  media().broken = 0;
  EXPECT_EQ(read_bytes(undo("subsys.k")), first_configuration().k_text());
  EXPECT_TRUE(exists(undo("corrupted.k.absent")));
  write_bytes(elsewhere + "/subsys.k", "");
  EXPECT_TRUE(restore());
  EXPECT_EQ(read_bytes(elsewhere + "/subsys.k"), first_configuration().k_text());
}

TEST_F(UndoOfTwoFileSystems, IsNotBegunBeforeBothAreOnTheirMedia) {
  media().broken = device_of(elsewhere);
  EXPECT_FALSE(begin());
  EXPECT_TRUE(exists(root() + "config"));
  EXPECT_EQ(read_bytes(elsewhere + "/subsys.k"), first_configuration().k_text());
}

TEST_F(UndoOfTwoFileSystems, CopiesTheKFiles) {
  ASSERT_TRUE(begin());
  EXPECT_EQ(read_bytes(undo("subsys.k")), first_configuration().k_text());
  write_bytes(elsewhere + "/subsys.k", "new");
  write_bytes(elsewhere + "/corrupted.k", "new");
  EXPECT_TRUE(restore());
  EXPECT_EQ(read_bytes(elsewhere + "/subsys.k"), first_configuration().k_text());
  EXPECT_FALSE(exists(elsewhere + "/corrupted.k"));
}

}  // namespace
