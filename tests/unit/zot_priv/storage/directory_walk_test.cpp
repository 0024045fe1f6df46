// SPDX-License-Identifier: Apache-2.0
// Directories as the kernel lists them, and their removal.
#include "zot_priv/storage/directory_walk.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>

#include "tests/support/capabilities.hpp"
#include "tests/support/files.hpp"

namespace {

using namespace zot::test;
using namespace zot::directory_walk;
namespace fs = std::filesystem;

std::set<std::string> names_in(const std::string &path) {
  const zot::descriptor directory = open_root(path.c_str());
  directory_names names(directory.get());
  std::set<std::string> found;
  while (const char *const name = names.next()) {
    EXPECT_TRUE(found.insert(name).second) << name;
  }
  EXPECT_FALSE(names.has_failed());
  return found;
}

bool remove(const std::string &parent, const char *name) {
  const zot::descriptor directory = open_root(parent.c_str());
  struct stat st {};
  EXPECT_EQ(::fstatat(directory.get(), name, &st, AT_SYMLINK_NOFOLLOW), 0);
  return remove_entry(directory.get(), name, st);
}

TEST(DirectoryNames, EmptyDirectoryHasNone) {
  const temp_dir dir;
  EXPECT_TRUE(names_in(dir.path()).empty());
}

TEST(DirectoryNames, HiddenFilesAreNamesLikeOthers) {
  const temp_dir dir;
  const std::set<std::string> names = {".hidden", "...", "..a", "plain"};
  for (const std::string &name : names) {
    write_bytes(dir / name, "x");
  }
  EXPECT_EQ(names_in(dir.path()), names);
}

// Far more names than one read returns, of every length.
TEST(DirectoryNames, LargeDirectoryIsNamedCompletely) {
  const temp_dir dir;
  std::set<std::string> names;
  for (size_t length = 1; length <= 255; ++length) {
    for (const char letter : {'a', 'b', 'c'}) {
      names.insert(std::string(length, letter));
    }
  }
  for (const std::string &name : names) {
    write_bytes(dir / name, "");
  }
  EXPECT_EQ(names_in(dir.path()), names);
}

TEST(DirectoryNames, WhatIsNoDirectoryFails) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  const zot::descriptor file(::open((dir / "file").c_str(), O_RDONLY | O_CLOEXEC));
  directory_names names(file.get());
  EXPECT_EQ(names.next(), nullptr);
  EXPECT_TRUE(names.has_failed());
  EXPECT_EQ(errno, ENOTDIR);
}

TEST(ForEachEntry, VisitThatSaysSoEndsIt) {
  const temp_dir dir;
  write_bytes(dir / "a", "");
  write_bytes(dir / "b", "");
  const zot::descriptor directory = open_root(dir.path().c_str());
  int visits = 0;
  EXPECT_FALSE(for_each_entry(directory.get(), [&](int, const char *, const struct stat &) {
    ++visits;
    return false;
  }));
  EXPECT_EQ(visits, 1);
}

TEST(ForEachEntry, LinkIsSeenAsALink) {
  const temp_dir dir;
  fs::create_symlink("/", fs::path(dir / "link"));
  const zot::descriptor directory = open_root(dir.path().c_str());
  bool is_link = false;
  EXPECT_TRUE(for_each_entry(directory.get(), [&](int, const char *, const struct stat &st) {
    is_link = S_ISLNK(st.st_mode);
    return true;
  }));
  EXPECT_TRUE(is_link);
}

TEST(OpenDirectory, FollowsNoLink) {
  const temp_dir dir;
  fs::create_directory(fs::path(dir / "real"));
  fs::create_symlink("real", fs::path(dir / "link"));
  const zot::descriptor directory = open_root(dir.path().c_str());
  EXPECT_TRUE(open_directory(directory.get(), "real").is_open());
  EXPECT_FALSE(open_directory(directory.get(), "link").is_open());
}

TEST(OpenRoot, FollowsALink) {
  const temp_dir dir;
  fs::create_directory(fs::path(dir / "real"));
  fs::create_symlink("real", fs::path(dir / "link"));
  EXPECT_TRUE(open_root((dir / "link").c_str()).is_open());
}

// The mode of a folder after make_accessible().
mode_t mode_made_from(mode_t mode) {
  const temp_dir dir;
  fs::create_directory(fs::path(dir / "folder"));
  EXPECT_EQ(::chmod((dir / "folder").c_str(), mode), 0);
  const zot::descriptor directory = open_root(dir.path().c_str());
  struct stat st {};
  EXPECT_EQ(::fstatat(directory.get(), "folder", &st, AT_SYMLINK_NOFOLLOW), 0);
  EXPECT_TRUE(make_accessible(directory.get(), "folder", st));
  EXPECT_EQ(::fstatat(directory.get(), "folder", &st, AT_SYMLINK_NOFOLLOW), 0);
  return st.st_mode & 07777;
}

TEST(MakeAccessible, GivesTheOwnerEveryPermissionAndKeepsThoseOfOthers) {
  EXPECT_EQ(mode_made_from(0), 0700U);
  EXPECT_EQ(mode_made_from(0345), 0745U);
  EXPECT_EQ(mode_made_from(0655), 0755U);
}

TEST(MakeAccessible, LeavesAFolderAloneThatIsOpenToItsOwner) {
  EXPECT_EQ(mode_made_from(01755), 01755U);
}

TEST(RemoveEntry, FileGoes) {
  const temp_dir dir;
  write_bytes(dir / "file", "x");
  EXPECT_TRUE(remove(dir.path(), "file"));
  EXPECT_FALSE(exists(dir / "file"));
}

TEST(RemoveEntry, TreeGoesAndWhatALinkInItNamesStays) {
  const temp_dir dir;
  write_bytes(dir / "kept", "x");
  write_bytes(dir / "tree/a/b/c", "x");
  write_bytes(dir / "tree/d", "x");
  fs::create_symlink(dir / "kept", fs::path(dir / "tree/a/link"));
  EXPECT_TRUE(remove(dir.path(), "tree"));
  EXPECT_FALSE(exists(dir / "tree"));
  EXPECT_TRUE(exists(dir / "kept"));
}

TEST(RemoveEntry, TreeOfFoldersThatAreClosedToTheirOwnerGoes) {
  const temp_dir dir;
  write_bytes(dir / "tree/a/b/c/file", "x");
  for (const char *const name : {"tree/a/b/c", "tree/a/b", "tree/a", "tree"}) {
    ASSERT_EQ(::chmod((dir / name).c_str(), 0), 0);
  }
  EXPECT_TRUE(holds_without_capabilities([&] { return remove(dir.path(), "tree"); }));
  EXPECT_FALSE(exists(dir / "tree"));
}

TEST(RemoveEntry, LargeDirectoryGoes) {
  const temp_dir dir;
  for (int number = 0; number < 1000; ++number) {
    write_bytes(dir / ("tree/" + std::to_string(number)), "");
    fs::create_directories(fs::path(dir / ("tree/folder" + std::to_string(number) + "/deeper")));
  }
  EXPECT_TRUE(remove(dir.path(), "tree"));
  EXPECT_FALSE(exists(dir / "tree"));
}

}  // namespace
