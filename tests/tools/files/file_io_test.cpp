// SPDX-License-Identifier: Apache-2.0
#include "tools/files/file_io.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <system_error>
#include <thread>
#include <utility>

#include "tests/support/files.hpp"

namespace zotconf {
namespace {

TEST(OpenBeneath, OpensAFileOverTwoGibibytes) {
  constexpr off_t size = off_t{3} << 30;
  const zot::test::temp_dir dir;
  zot::test::write_bytes(dir / "config/Wlan/large", "");
  ASSERT_EQ(::truncate((dir / "config/Wlan/large").c_str(), size), 0);
  const std::array<std::string, 3> parts = {"config", "Wlan", "large"};
  const zot::descriptor file = open_beneath(dir.path(), parts);
  ASSERT_TRUE(file.is_open());
  struct stat info {};
  ASSERT_EQ(::fstat(file.get(), &info), 0);
  EXPECT_EQ(info.st_size, size);
}

TEST(ReadFile, ReturnsTheBytesOfAFile) {
  const zot::test::temp_dir dir;
  for (const size_t size : {0U, 1U, 65535U, 65536U, 200000U}) {
    const std::string bytes(size, 'x');
    zot::test::write_bytes(dir / "file", bytes);
    EXPECT_EQ(read_file_text(dir / "file"), bytes);
  }
}

// A pipe has no size, as a file of /proc.
TEST(ReadFile, ReadsMoreThanTheSizeStates) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const zot::descriptor from(ends[0]);
  const std::string bytes(300000, 'x');
  std::thread writer([&bytes, to = ends[1]] {
    const zot::descriptor end(to);
    write_all(end.get(), bytes, "pipe");
  });
  EXPECT_EQ(read_file_at(from.get(), "pipe"), bytes);
  writer.join();
}

TEST(ReadBeginning, ReturnsNoMoreThanItIsAskedFor) {
  const zot::test::temp_dir dir;
  zot::test::write_bytes(dir / "file", "abcdef");
  for (const auto &[most, expected] :
       {std::pair(0U, ""), {5U, "abcde"}, {6U, "abcdef"}, {1000U, "abcdef"}}) {
    const zot::descriptor file(::open((dir / "file").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(read_beginning_at(file.get(), most, "file"), expected) << most;
  }
}

TEST(ReadBeginning, ReadsAFileWithoutAnEnd) {
  const zot::descriptor zeros(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(read_beginning_at(zeros.get(), 100000, "zeros"), std::string(100000, '\0'));
}

TEST(ReadBeginning, SaysWhatCannotBeRead) {
  const zot::test::temp_dir dir;
  const zot::descriptor folder(::open(dir.path().c_str(), O_RDONLY | O_CLOEXEC));
  try {
    read_beginning_at(folder.get(), 1, "the folder");
    FAIL();
  } catch (const std::system_error &error) {
    EXPECT_STREQ(error.what(), "cannot read the folder: Is a directory");
  }
}

TEST(ReplaceFile, LeavesNoTemporaryFileBehindIfItFails) {
  const zot::test::temp_dir dir;
  zot::test::write_bytes(dir / "folder/file", "");
  EXPECT_THROW(replace_file(dir / "folder", "new", durability::buffered), std::system_error);
  EXPECT_FALSE(is_there(temporary_beside(dir / "folder")));
  replace_file(dir / "folder/file", "new", durability::buffered);
  EXPECT_EQ(read_file_text(dir / "folder/file"), "new");
  EXPECT_FALSE(is_there(temporary_beside(dir / "folder/file")));
}

TEST(CheckReplaceable, AcceptsARegularFileOrNone) {
  const zot::test::temp_dir dir;
  zot::test::write_bytes(dir / "file", "");
  EXPECT_NO_THROW(check_replaceable(dir / "file"));
  EXPECT_NO_THROW(check_replaceable(dir / "absent"));
  EXPECT_NO_THROW(check_replaceable(""));
  EXPECT_THROW(check_replaceable(dir.path()), std::runtime_error);
  EXPECT_THROW(check_replaceable("/dev/null"), std::runtime_error);
}

}  // namespace
}  // namespace zotconf
