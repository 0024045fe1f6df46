// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/file_check.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

using zotconf::file_fault_kind;

class FileCheck : public testing::Test {
 protected:
  FileCheck() { write_bytes(file_, "1234"); }

  [[nodiscard]] static zotconf::listed_file named(const std::string &path, uint64_t size) {
    zotconf::listed_file file;
    file.path = path;
    file.size = size;
    return file;
  }
  [[nodiscard]] zotconf::file_faults look(const std::string &path = "/Wlan/a/1") const {
    return zotconf::find_file_faults(dir_.path(), {named(path, 4)});
  }
  // The kind and the text of the one fault.
  void expect_fault(file_fault_kind kind, const std::string &text) const {
    const auto found = look();
    ASSERT_EQ(found.count, 1);
    EXPECT_EQ(found.first[0].kind, kind);
    EXPECT_EQ(found.first[0].path, "config/Wlan/a/1");
    EXPECT_EQ(found.first[0].text, text);
  }

  temp_dir dir_;
  std::string file_ = dir_ / "config/Wlan/a/1";
};

TEST_F(FileCheck, TakesAFileOfTheStatedSize) {
  EXPECT_EQ(look().count, 0);
}

TEST_F(FileCheck, FindsAMissingFile) {
  std::filesystem::remove(file_);
  expect_fault(file_fault_kind::missing, "is missing");
}

TEST_F(FileCheck, FindsAMissingFolderOfAllFiles) {
  std::filesystem::remove_all(dir_ / "config");
  expect_fault(file_fault_kind::missing, "is missing");
}

TEST_F(FileCheck, FindsAFileOfAnotherSize) {
  write_bytes(file_, "123");
  expect_fault(file_fault_kind::wrong_size, "has 3 bytes instead of 4");
}

TEST_F(FileCheck, FindsALinkInPlaceOfAFile) {
  std::filesystem::rename(file_, dir_ / "elsewhere");
  std::filesystem::create_symlink(dir_ / "elsewhere", file_);
  expect_fault(file_fault_kind::not_regular, "is not a regular file");
}

TEST_F(FileCheck, FindsALinkInPlaceOfAFolder) {
  std::filesystem::rename(dir_ / "config/Wlan", dir_ / "elsewhere");
  std::filesystem::create_directory_symlink(dir_ / "elsewhere", dir_ / "config/Wlan");
  expect_fault(file_fault_kind::not_regular, "is not a regular file");
}

TEST_F(FileCheck, DoesNotWaitForAFifo) {
  std::filesystem::remove(file_);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  expect_fault(file_fault_kind::not_regular, "is not a regular file");
}

TEST_F(FileCheck, FindsAFolderInPlaceOfAFile) {
  std::filesystem::remove(file_);
  std::filesystem::create_directory(file_);
  expect_fault(file_fault_kind::not_regular, "is not a regular file");
}

TEST_F(FileCheck, RefusesANameThatLeadsElsewhere) {
  for (const std::string path : {"/Wlan/../1", "/Wlan/a", "/Wlan/a/1/2", "/Wlan/a/1/"}) {
    const auto found = look(path);
    ASSERT_EQ(found.count, 1) << path;
    EXPECT_EQ(found.first[0].kind, file_fault_kind::wrong_name) << path;
  }
}

TEST_F(FileCheck, CountsAllFaultsAndKeepsTheFirst) {
  std::vector<zotconf::listed_file> files;
  for (int i = 0; i < 100; ++i) {
    files.push_back(named("/Wlan/none" + std::to_string(i) + "/1", 4));
    files.push_back(named("/Wlan/a/1", 4));
  }
  const auto found = zotconf::find_file_faults(dir_.path(), files);
  EXPECT_EQ(found.count, 100);
  ASSERT_EQ(found.first.size(), zotconf::file_faults::kept);
  EXPECT_EQ(found.first[1].path, "config/Wlan/none1/1");
}

}  // namespace
}  // namespace zot::test
