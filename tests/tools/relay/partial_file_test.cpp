// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/partial_file.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

using zotconf::partial_file;

class PartialFile : public testing::Test {
 protected:
  temp_dir dir_;
  std::string path_ = dir_ / "file";
};

TEST_F(PartialFile, IsCreatedWhenItIsOpened) {
  partial_file file(path_, 10);
  EXPECT_FALSE(exists(path_));
  file.open(0);
  file.append("bytes");
  file.close();
  EXPECT_EQ(read_bytes(path_), "bytes");
  EXPECT_EQ(file.end(), 5U);
  EXPECT_EQ(file.size_on_disk(), 5U);
}

TEST_F(PartialFile, LosesWhatIsBehindTheBegin) {
  write_bytes(path_, "bytes");
  partial_file file(path_, 10);
  file.open(2);
  EXPECT_EQ(read_bytes(path_), "by");
  file.append("e");
  file.close();
  EXPECT_EQ(read_bytes(path_), "bye");
}

TEST_F(PartialFile, GetsNoMoreThanItsSize) {
  partial_file file(path_, 5);
  file.open(0);
  file.append("byte");
  EXPECT_THROW(file.append("s!"), std::runtime_error);
  EXPECT_EQ(read_bytes(path_), "byte");
  file.append("s");
  EXPECT_THROW(file.append("!"), std::runtime_error);
  EXPECT_EQ(read_bytes(path_), "bytes");
}

TEST_F(PartialFile, IsClosedWithoutHavingBeenOpened) {
  partial_file file(path_, 5);
  EXPECT_NO_THROW(file.close());
  EXPECT_FALSE(exists(path_));
}

TEST_F(PartialFile, HasNoSizeUnlessItIsARegularFile) {
  EXPECT_EQ(partial_file(path_, 5).size_on_disk(), 0U);
  write_bytes(dir_ / "target", "bytes");
  std::filesystem::create_symlink(dir_ / "target", path_);
  EXPECT_EQ(partial_file(path_, 5).size_on_disk(), 0U);
  EXPECT_THROW(partial_file(path_, 5).open(0), std::runtime_error);
  EXPECT_EQ(read_bytes(dir_ / "target"), "bytes");
}

TEST_F(PartialFile, IsNoDevice) {
  EXPECT_THROW(partial_file("/dev/null", 5).open(0), std::runtime_error);
}

}  // namespace
}  // namespace zot::test
