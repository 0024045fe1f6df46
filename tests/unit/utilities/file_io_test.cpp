// SPDX-License-Identifier: Apache-2.0
#include "utilities/file_io.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>

#include "tests/support/files.hpp"
#include "utilities/owner.hpp"

namespace {

// A file that is open at its start.
struct opened {
  explicit opened(const std::string &bytes) {
    zot::test::write_bytes(path, bytes);
    fd = zot::descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  }
  bool read(size_t size) { return zot::read_exactly(fd.get(), into.data(), size); }

  zot::test::temp_dir dir;
  std::string path = dir / "file";
  zot::descriptor fd{-1};
  std::array<char, 16> into{};
};

TEST(ReadExactly, TakesAFileOfJustThatSize) {
  opened file("bytes");
  EXPECT_TRUE(file.read(5));
  EXPECT_EQ(std::string(file.into.data()), "bytes");
}

TEST(ReadExactly, RefusesAShorterFile) {
  opened file("byte");
  EXPECT_FALSE(file.read(5));
}

TEST(ReadExactly, RefusesAnEmptyFile) {
  opened file("");
  EXPECT_FALSE(file.read(1));
}

TEST(ReadExactly, LeavesTheRestOfALongerFile) {
  opened file("bytes and more");
  EXPECT_TRUE(file.read(5));
  EXPECT_EQ(std::string(file.into.data()), "bytes");
}

TEST(ReadExactly, GoesOnWhereTheDescriptorStands) {
  opened file("bytesmore!");
  ASSERT_TRUE(file.read(5));
  EXPECT_TRUE(file.read(5));
  EXPECT_EQ(std::string(file.into.data()), "more!");
  EXPECT_FALSE(file.read(1));
}

TEST(ReadExactly, NoBytesAreAlwaysThere) {
  opened file("");
  EXPECT_TRUE(file.read(0));
}

TEST(ReadExactly, PiecesOfAPipeAreJoined) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const zot::descriptor from(ends[0]);
  zot::descriptor to(ends[1]);
  std::array<char, 8> into{};
  std::thread writer([&to] {
    for (const char *const piece : {"by", "te", "s"}) {
      EXPECT_GT(::write(to.get(), piece, std::char_traits<char>::length(piece)), 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
  EXPECT_TRUE(zot::read_exactly(from.get(), into.data(), 5));
  writer.join();
  EXPECT_EQ(std::string(into.data()), "bytes");
}

TEST(ReadExactly, FailsOnADescriptorThatCannotBeRead) {
  opened file("bytes");
  EXPECT_FALSE(zot::read_exactly(-1, file.into.data(), 1));
  const zot::descriptor written(::open(file.path.c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_FALSE(zot::read_exactly(written.get(), file.into.data(), 1));
}

bool holds(const std::string &content, const std::string &bytes) {
  const opened file(content);
  return zot::holds_exactly(file.fd.get(), bytes.data(), bytes.size());
}

TEST(HoldsExactly, TellsTheSameBytesFromOthers) {
  EXPECT_TRUE(holds("bytes", "bytes"));
  EXPECT_FALSE(holds("bytes", "bites"));
  EXPECT_TRUE(holds("", ""));
}

TEST(HoldsExactly, RefusesALongerAndAShorterFile) {
  EXPECT_FALSE(holds("bytes and more", "bytes"));
  EXPECT_FALSE(holds("byte", "bytes"));
}

TEST(HoldsExactly, LooksAtTheLastByteOfALargeFile) {
  std::string large(10000, 'a');
  EXPECT_TRUE(holds(large, large));
  const std::string before = large;
  large.back() = 'b';
  EXPECT_FALSE(holds(before, large));
}

TEST(HoldsExactly, RefusesWhatIsNoPlainFile) {
  const zot::test::temp_dir dir;
  const zot::descriptor folder(::open(dir.path().c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(folder.is_open());
  EXPECT_FALSE(zot::holds_exactly(folder.get(), "", 0));
  EXPECT_FALSE(zot::holds_exactly(-1, "", 0));
}

}  // namespace
