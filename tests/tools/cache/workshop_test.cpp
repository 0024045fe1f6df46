// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/workshop.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <stdexcept>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class Workshop : public testing::Test {
 protected:
  Workshop() { fs::create_directories(paths_.conf_root / "knowledge"); }

  [[nodiscard]] fs::path at(const std::string &name) const { return paths_.conf_root / name; }
  // The findings of an examination of the cache in its present state.
  [[nodiscard]] zotconf::findings found() const {
    zotconf::findings all;
    for (const zotconf::k_slot slot : zotconf::k_slots) {
      all.slots.at(static_cast<std::size_t>(slot)) = zotconf::read_slot(paths_, slot);
    }
    return all;
  }
  [[nodiscard]] std::string refusal(const zotconf::findings &before) const {
    try {
      const zotconf::workshop repair(paths_, before, 100ms);
    } catch (const std::runtime_error &problem) {
      return problem.what();
    }
    return "";
  }

  temp_dir dir_;
  zotconf::cache_paths paths_{.conf_root = dir_ / "cache", .tmp_root = dir_ / "scratch"};
};

TEST_F(Workshop, GivesUpWhenTheCacheStaysLocked) {
  const auto before = found();
  const zot::descriptor other(::open(paths_.conf_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(refusal(before),
            "cannot lock " + paths_.conf_root.string() + ": another process holds the lock");
  EXPECT_FALSE(fs::exists(at(".repair")));
}

TEST_F(Workshop, TakesTheCacheWhenItBecomesFree) {
  const auto before = found();
  zot::descriptor other(::open(paths_.conf_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0);
  std::thread holder([&other] {
    std::this_thread::sleep_for(100ms);
    ::flock(other.get(), LOCK_UN);
  });
  EXPECT_NO_THROW(zotconf::workshop(paths_, before));
  holder.join();
}

TEST_F(Workshop, RefusesACacheThatChangedSinceItWasExamined) {
  const std::string told =
      paths_.conf_root.string() + ": changed by another process during the repair";
  for (const char *const name : {"knowledge/subsys.checksum", "knowledge/corrupted.checksum"}) {
    const auto before = found();
    EXPECT_EQ(refusal(before), "");
    write_bytes(at(name), std::string(64, 'a') + "\n");
    EXPECT_EQ(refusal(before), told) << name;
  }
  const auto before = found();
  fs::create_directory(at("undo"));
  EXPECT_EQ(refusal(before), told);
}

TEST_F(Workshop, LeavesNoFolderBehindNorOneOfAnInterruptedRepair) {
  fs::create_directories(at(".repair/away-0"));
  {
    const zotconf::workshop repair(paths_, found());
    EXPECT_TRUE(fs::is_empty(repair.folder()));
  }
  EXPECT_FALSE(fs::exists(at(".repair")));
}

TEST_F(Workshop, PutsAFileWhereADirectoryStands) {
  fs::create_directories(at("knowledge/subsys.k/inside"));
  zotconf::workshop repair(paths_, found());
  write_bytes(repair.folder() / "new", "bytes");
  repair.place_copy(repair.folder() / "new", at("knowledge/subsys.k"));
  EXPECT_EQ(read_bytes(at("knowledge/subsys.k")), "bytes");
  EXPECT_EQ(read_bytes(repair.folder() / "new"), "bytes");
  repair.place(repair.folder() / "new", at("knowledge/corrupted.k"));
  EXPECT_EQ(read_bytes(at("knowledge/corrupted.k")), "bytes");
  EXPECT_FALSE(fs::exists(repair.folder() / "new"));
}

TEST_F(Workshop, MakesADirectoryButNotBehindASymbolicLink) {
  zotconf::workshop repair(paths_, found());
  write_bytes(at("config"), "a file");
  EXPECT_TRUE(repair.make_directory(at("config")));
  EXPECT_TRUE(fs::is_directory(at("config")));
  fs::create_directory_symlink(dir_.path(), at("link"));
  EXPECT_FALSE(repair.make_directory(at("link")));
  EXPECT_TRUE(fs::is_symlink(at("link")));
}

}  // namespace
}  // namespace zot::test
