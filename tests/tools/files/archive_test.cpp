// SPDX-License-Identifier: Apache-2.0
#include "tools/files/archive.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <stop_token>

#include "tests/support/files.hpp"
#include "tools/files/archive_reader.hpp"

namespace zot::test {
namespace {

class GzipTar : public testing::Test {
 protected:
  // The archive of one file.
  [[nodiscard]] std::string packed(const std::string &bytes, zotconf::gzip_tar &&archive) const {
    write_bytes(dir_ / "source", bytes);
    const zot::descriptor source(::open((dir_ / "source").c_str(), O_RDONLY));
    archive.add(source.get(), "config/Wlan/a/1");
    const zotconf::gzip_tar::finished made = archive.finish();
    EXPECT_EQ(::lseek(made.file.get(), 0, SEEK_SET), 0);
    std::string text = zotconf::read_file_at(made.file.get(), "the archive");
    EXPECT_EQ(text.size(), made.size);
    return text;
  }
  [[nodiscard]] std::string unpacked(const std::string &archive) const {
    write_bytes(dir_ / "archive", archive);
    // Throws for an archive in another format than gzip.
    EXPECT_EQ(zotconf::members_of(dir_ / "archive", 1 << 20).size(), 1U);
    zotconf::unpack(dir_ / "archive",
                    {{"config/Wlan/a/1", {.to = dir_ / "result", .longest = 1 << 20}}});
    return read_bytes(dir_ / "result");
  }

  temp_dir dir_;
};

TEST_F(GzipTar, HasTheSameFormatWithEachCompression) {
  const std::string bytes = std::string(100'000, 'a') + noise(1000);
  std::vector<size_t> sizes;
  for (const int compression : {0, 1, 5, 9}) {
    const std::string archive = packed(bytes, zotconf::gzip_tar({}, compression));
    EXPECT_EQ(unpacked(archive), bytes) << compression;
    sizes.push_back(archive.size());
  }
  EXPECT_GT(sizes[0], bytes.size()) << "not compressed";
  EXPECT_LT(sizes[0], bytes.size() + 20'000);
  EXPECT_LT(sizes[1], bytes.size() / 10);
  EXPECT_LT(sizes[3], sizes[1]);
}

TEST_F(GzipTar, IsCompressedFastUnlessAskedOtherwise) {
  std::string bytes = noise(100'000);
  for (char &each : bytes) {
    each = static_cast<char>('a' + (each & 3));
  }
  const size_t unasked = packed(bytes, zotconf::gzip_tar()).size();
  // The times in two archives may differ, which changes the size by a few bytes.
  EXPECT_NEAR(static_cast<double>(unasked),
              static_cast<double>(packed(bytes, zotconf::gzip_tar({}, 1)).size()), 16);
  EXPECT_GT(unasked, packed(bytes, zotconf::gzip_tar({}, 6)).size() + 1000);
}

TEST_F(GzipTar, RefusesACompressionThatDoesNotExist) {
  EXPECT_THROW(zotconf::gzip_tar({}, 10), std::runtime_error);
  EXPECT_THROW(zotconf::gzip_tar({}, -1), std::runtime_error);
}

// Bytes that this process has written so far.
uint64_t written() {
  std::istringstream lines(read_bytes("/proc/self/io"));
  uint64_t bytes = 0;
  for (std::string name; lines >> name >> bytes;) {
    if (name == "wchar:") {
      return bytes;
    }
  }
  throw std::runtime_error("/proc/self/io has no wchar");
}

TEST_F(GzipTar, WritesNoMoreAfterAStop) {
  constexpr uintmax_t size = uintmax_t{64} << 20;
  write_bytes(dir_ / "source", "");
  std::filesystem::resize_file(dir_ / "source", size);
  const zot::descriptor source(::open((dir_ / "source").c_str(), O_RDONLY));
  std::stop_source stop;
  stop.request_stop();
  const uint64_t before = written();
  {
    zotconf::gzip_tar archive(stop.get_token(), 0);
    EXPECT_THROW(archive.add(source.get(), "config/Wlan/a/1"), std::runtime_error);
  }
  EXPECT_LT(written() - before, uint64_t{1} << 20);
}

}  // namespace
}  // namespace zot::test
