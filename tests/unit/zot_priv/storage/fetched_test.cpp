// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/fetched.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>

#include "tests/cycle/cycle_checks.hpp"
#include "tests/support/service.hpp"
#include "utilities/owner.hpp"
#include "zot_priv/model/owners.hpp"

namespace {
using namespace zot::test;

namespace fs = std::filesystem;

// A get that brought the second configuration.
class Fetched : public testing::Test {
 protected:
  void SetUp() override {
    remote.publish(second_configuration());
    ASSERT_EQ(e.get().status, ZOT_OK);
  }
  [[nodiscard]] bool is_k_as_fetched() const {
    return zot::is_k_as_fetched(*e.handle(), *slot_of(e, ZOT_SLOT_TMP).k);
  }
  [[nodiscard]] bool is_set_as_fetched() const {
    const zot_slot &fetched = slot_of(e, ZOT_SLOT_TMP);
    return zot::is_set_as_fetched(*e.handle(), *fetched.k, fetched.gpbs);
  }
  [[nodiscard]] bool is_in_force() const {
    const zot_slot &fetched = slot_of(e, ZOT_SLOT_TMP);
    return zot::is_in_force(*e.handle(), *fetched.k, fetched.gpbs);
  }
  // Replaces the checksum file, as a later get does at its start.
  void renew_checksum() {
    write_bytes(scratch("subsys.checksum"), second_configuration().checksum_text());
  }
  [[nodiscard]] std::string scratch(const std::string &name) const {
    return e.tmp_root() + "/" + name;
  }

  service remote;
  element e{remote.port()};
};

TEST_F(Fetched, IsWholeAfterItsGet) {
  EXPECT_TRUE(is_k_as_fetched());
  EXPECT_TRUE(is_set_as_fetched());
}

TEST_F(Fetched, IsWholeWhenALaterGetBroughtTheSame) {
  renew_checksum();
  EXPECT_TRUE(is_k_as_fetched());
  EXPECT_TRUE(is_set_as_fetched());
}

TEST_F(Fetched, IsComparedWhereAFileWasWrittenSince) {
  write_bytes(scratch("config/Wlan/staff/1"), "staff one");
  EXPECT_TRUE(is_set_as_fetched());
  write_bytes(scratch("config/Wlan/staff/1"), "Staff one");
  EXPECT_FALSE(is_set_as_fetched());
}

// Like a disk that returns other bytes than were written: only the commit's copy sees them.
TEST_F(Fetched, IsNotReadAgainWhenNobodyTouchedIt) {
  const std::string file = scratch("config/Wlan/staff/1");
  struct stat written {};
  // Both have to be in one second, so that only the fraction tells which was first.
  for (int attempt = 0; attempt < 20; ++attempt) {
    write_bytes(file, "Staff one");
    ASSERT_EQ(::stat(file.c_str(), &written), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(zot::remember_get(*e.handle()));
    if (e.handle()->own.fetched.seconds == static_cast<std::uint64_t>(written.st_ctim.tv_sec)) {
      break;
    }
  }
  EXPECT_TRUE(is_set_as_fetched());
}

TEST_F(Fetched, IsFromTheFoldersOfTheLastGet) {
  zot_ctx *const handle = e.handle();
  for (const std::string folder : {"one", "another"}) {
    folder.copy(handle->conf_root, sizeof handle->conf_root - 1);
    handle->conf_root[folder.size()] = '\0';
    folder.copy(handle->tmp_root, sizeof handle->tmp_root - 1);
    handle->tmp_root[folder.size()] = '\0';
    ASSERT_TRUE(zot::remember_get(*handle));
    EXPECT_EQ(handle->own.conf_root, folder);
    EXPECT_EQ(handle->own.tmp_root, folder);
  }
}

TEST_F(Fetched, IsNotWholeWithOtherBytesOfAFile) {
  renew_checksum();
  write_bytes(scratch("config/Wlan/staff/1"), "Staff one");
  EXPECT_FALSE(is_set_as_fetched());
  EXPECT_TRUE(is_k_as_fetched());
}

TEST_F(Fetched, IsNotWholeWithAFileOfAnotherSize) {
  renew_checksum();
  write_bytes(scratch("config/Wlan/staff/1"), "staff one and more");
  EXPECT_FALSE(is_set_as_fetched());
}

TEST_F(Fetched, IsNotWholeWithoutAFile) {
  renew_checksum();
  fs::remove(scratch("config/Wlan/staff/1"));
  EXPECT_FALSE(is_set_as_fetched());
}

TEST_F(Fetched, IsNotWholeWithAnotherK) {
  renew_checksum();
  write_bytes(scratch("subsys.k"), third_configuration().k_text());
  EXPECT_FALSE(is_k_as_fetched());
  EXPECT_FALSE(is_set_as_fetched());
}

// As after a get that ran out of memory for the path of K.
TEST_F(Fetched, IsWholeWithoutTheBytesOfKAsLongAsNobodyElseGetsAny) {
  zot_k &k = *slot_of(e, ZOT_SLOT_TMP).k;
  const zot::c_text bytes(std::exchange(k.data, nullptr));
  EXPECT_TRUE(is_k_as_fetched());
  EXPECT_TRUE(is_set_as_fetched());
  renew_checksum();
  EXPECT_FALSE(is_k_as_fetched());
}

TEST_F(Fetched, IsNotWholeWithTheChecksumOfAnotherK) {
  write_bytes(scratch("subsys.checksum"), third_configuration().checksum_text());
  EXPECT_FALSE(is_k_as_fetched());
  EXPECT_FALSE(is_set_as_fetched());
}

TEST_F(Fetched, IsComparedWhenFilesMayHaveGone) {
  write_bytes(scratch("config/Wlan/staff/1"), "Staff one");
  zot::touch_fetched(*e.handle());
  EXPECT_FALSE(is_set_as_fetched());
}

TEST_F(Fetched, IsStoredWhenTheCacheHasAllItsFiles) {
  const zot_list *const gpbs = slot_of(e, ZOT_SLOT_TMP).gpbs;
  EXPECT_FALSE(zot::are_files_stored(*e.handle(), gpbs));
  second_configuration().install_cache(e.conf_root());
  EXPECT_TRUE(zot::are_files_stored(*e.handle(), gpbs));
  write_bytes(e.conf_root() + "config/Wlan/staff/1", "staff");
  EXPECT_FALSE(zot::are_files_stored(*e.handle(), gpbs));
}

// There, two files whose names differ only in case may have the same size.
TEST_F(Fetched, IsComparedWhereNamesThatDifferInCaseAreOneFile) {
  const zot_list *const gpbs = slot_of(e, ZOT_SLOT_TMP).gpbs;
  second_configuration().install_cache(e.conf_root());
  std::filesystem::create_symlink("config", e.conf_root() + "CONFIG");
  EXPECT_TRUE(zot::are_files_stored(*e.handle(), gpbs));
  flip_bit(e.conf_root() + "config/Wlan/staff/1");
  EXPECT_FALSE(zot::are_files_stored(*e.handle(), gpbs));
}

TEST_F(Fetched, IsInForceWhenTheCacheHasAllOfIt) {
  EXPECT_FALSE(is_in_force());
  second_configuration().install_cache(e.conf_root());
  EXPECT_TRUE(is_in_force());
}

TEST_F(Fetched, IsNotInForceWhenTheCacheHasItDamaged) {
  for (const char *const name : {"knowledge/subsys.checksum", "config/Wlan/staff/1"}) {
    second_configuration().install_cache(e.conf_root());
    flip_bit(e.conf_root() + name);
    EXPECT_FALSE(is_in_force()) << name;
  }
}

TEST_F(Fetched, IsNotWholeWithoutAFileThoughNoOtherGetHasBegun) {
  fs::remove(scratch("config/Wlan/staff/1"));
  EXPECT_FALSE(is_set_as_fetched());
  EXPECT_TRUE(is_k_as_fetched());
}

TEST_F(Fetched, IsNotWholeWithALinkInThePlaceOfAFile) {
  const std::string file = scratch("config/Wlan/staff/1");
  fs::rename(file, e.dir() / "elsewhere");
  fs::create_symlink(e.dir() / "elsewhere", file);
  EXPECT_FALSE(is_set_as_fetched());
}

TEST_F(Fetched, IsNotWholeWithoutAFileWhenItsChecksumIsGoneToo) {
  fs::remove(scratch("subsys.checksum"));
  EXPECT_TRUE(is_set_as_fetched());
  fs::remove(scratch("config/Wlan/staff/1"));
  EXPECT_FALSE(is_set_as_fetched());
}

TEST_F(Fetched, MayLieElsewhereForAnAdapter) {
  fs::remove(scratch("config/Wlan/staff/1"));
  e.handle()->fns.commit_gpb = [](zot_ctx *, const char *, zot_list *) -> int { return ZOT_OK; };
  EXPECT_TRUE(is_set_as_fetched());
}

TEST_F(Fetched, LeavesAFolderThatIsGoneToItsCopy) {
  fs::remove_all(scratch("config"));
  EXPECT_TRUE(is_set_as_fetched());
  EXPECT_FALSE(zot::are_files_in(e.handle()->tmp_gpb_root, slot_of(e, ZOT_SLOT_TMP).gpbs));
}

TEST_F(Fetched, HasAPathOutsideOfItsFolderOnlyWhereOneClimbs) {
  const auto has_outside = [&](const char *path) {
    const zot::gpb_list_owner gpbs = zot::make_gpb_list(e.handle());
    for (const char *const each : {"/Wlan/b/1", path}) {
      list_add_tail(gpbs.get(), &zot_priv_gpb_new(each, 1, ZOT_CAT_WLAN, "", "a", 1)->node);
    }
    const char *const found = zot::path_outside(gpbs.get());
    return found != nullptr && std::string(found) == path;
  };
  for (const char *const path : {"/Wlan/a/1", "/Wlan/..a/...", "//a/./1", "/Wlan/a../b"}) {
    EXPECT_FALSE(has_outside(path)) << path;
  }
  for (const char *const path : {"/Wlan/../../gpb.tgz", "../subsys.k", "/./../config/Wlan/a/1",
                                 "/Wlan/../Wlan/a/1", "/Wlan/..", ".."}) {
    EXPECT_TRUE(has_outside(path)) << path;
  }
}

// The copy of the K reports the error better.
TEST_F(Fetched, LeavesAFileThatIsGoneToItsCopy) {
  renew_checksum();
  fs::remove(scratch("subsys.k"));
  EXPECT_TRUE(is_k_as_fetched());
  fs::remove(scratch("subsys.checksum"));
  EXPECT_TRUE(is_set_as_fetched());
}

TEST_F(Fetched, RemembersTheFoldersOfItsGet) {
  EXPECT_EQ(e.handle()->own.conf_root, e.conf_root());
  EXPECT_EQ(e.handle()->own.tmp_root, e.tmp_root());
  zot::forget_get(*e.handle());
  EXPECT_EQ(e.handle()->own.conf_root, nullptr);
}

}  // namespace
