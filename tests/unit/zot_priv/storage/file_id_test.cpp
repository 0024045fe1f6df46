// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/file_id.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/files.hpp"

namespace {
using namespace zot::test;

class FileId : public testing::Test {
 protected:
  [[nodiscard]] zot_file_id id(const std::string &name) const {
    return zot::file_id_at(AT_FDCWD, (dir / name).c_str());
  }

  temp_dir dir;
};

TEST_F(FileId, OfAnAbsentFileIsNotKnown) {
  EXPECT_EQ(id("absent").inode, 0U);
}

TEST_F(FileId, StaysWhileNobodyTouchesTheFile) {
  write_bytes(dir / "file", "bytes");
  EXPECT_NE(id("file").inode, 0U);
  EXPECT_TRUE(zot::is_same_file(id("file"), id("file")));
}

TEST_F(FileId, ChangesWhenAnotherFileTakesTheName) {
  write_bytes(dir / "file", "bytes");
  const zot_file_id before = id("file");
  write_bytes(dir / "other", "bytes");
  std::filesystem::rename(dir / "other", dir / "file");
  EXPECT_FALSE(zot::is_same_file(before, id("file")));
}

TEST_F(FileId, IsThatOfALinkItself) {
  write_bytes(dir / "file", "bytes");
  std::filesystem::create_symlink("file", dir / "link");
  EXPECT_FALSE(zot::is_same_file(id("file"), id("link")));
}

}  // namespace
