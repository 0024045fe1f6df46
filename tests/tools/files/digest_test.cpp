// SPDX-License-Identifier: Apache-2.0
#include "tools/files/digest.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

TEST(Digest, IsThatOfAllBytesHoweverTheyAreAdded) {
  const std::string bytes = noise(200'000);
  zotconf::sha256_stream parts;
  for (size_t at = 0; at < bytes.size(); at += 777) {
    parts.add(std::string_view(bytes).substr(at, 777));
  }
  EXPECT_EQ(parts.text(), sha256_hex(bytes));
}

TEST(Digest, ExistsForNoBytes) {
  EXPECT_EQ(zotconf::sha256_stream().text(),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(Digest, OfAFileIsReadFromItsFirstByteAndLeavesTheOffset) {
  const temp_dir dir;
  const std::string bytes = '\0' + noise(200'000);
  write_bytes(dir / "file", bytes);
  const zot::descriptor file(::open((dir / "file").c_str(), O_RDONLY));
  ASSERT_EQ(::lseek(file.get(), 1234, SEEK_SET), 1234);
  EXPECT_EQ(zotconf::sha256_of_file(file.get(), "file"), sha256_hex(bytes));
  EXPECT_EQ(::lseek(file.get(), 0, SEEK_CUR), 1234);
}

TEST(Digest, OfAFileThatCannotBeReadFailsWithItsName) {
  const temp_dir dir;
  const zot::descriptor folder(::open(dir.path().c_str(), O_RDONLY));
  try {
    (void)zotconf::sha256_of_file(folder.get(), "the folder");
    FAIL() << "read a folder";
  } catch (const std::system_error &error) {
    EXPECT_TRUE(std::string(error.what()).starts_with("cannot read the folder: "));
  }
}

TEST(Digest, IsKnownByItsForm) {
  const std::string digest(64, 'f');
  EXPECT_TRUE(zotconf::is_digest(digest));
  EXPECT_TRUE(
      zotconf::is_digest("0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"));
  for (const std::string &text :
       {std::string(), digest + "f", digest.substr(1), std::string(64, 'F'), std::string(64, 'g'),
        std::string(63, 'f') + "/", std::string(63, 'f') + '\0'}) {
    EXPECT_FALSE(zotconf::is_digest(text)) << text;
  }
}

}  // namespace
}  // namespace zot::test
