// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/object_folder.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

class ObjectFolder : public testing::Test {
 protected:
  [[nodiscard]] static zotconf::published_file file_of(const std::string &bytes) {
    zotconf::published_file file;
    file.size = bytes.size();
    file.checksum = sha256_hex(bytes);
    return file;
  }
  void take(const std::string &bytes) const {
    write_bytes(objects_.partial(file_of(bytes)), bytes);
    ASSERT_TRUE(objects_.take(file_of(bytes)));
  }
  [[nodiscard]] std::string path(const std::string &bytes) const {
    const std::string digest = sha256_hex(bytes);
    return dir_ / ("objects/" + digest.substr(0, 2) + "/" + digest.substr(2));
  }

  temp_dir dir_;
  zotconf::folder root_{dir_.path()};
  zotconf::object_folder objects_{root_};
};

TEST_F(ObjectFolder, HasWhatItTook) {
  EXPECT_FALSE(objects_.has(file_of("bytes")));
  take("bytes");
  EXPECT_TRUE(objects_.has(file_of("bytes")));
  EXPECT_EQ(read_bytes(path("bytes")), "bytes");
  EXPECT_TRUE(tree(dir_ / "partial").empty());
  const zot::descriptor opened = objects_.open(file_of("bytes"));
  EXPECT_EQ(zotconf::read_file_at(opened.get(), "bytes"), "bytes");
}

TEST_F(ObjectFolder, HasNoFileOfAnotherSize) {
  take("bytes");
  zotconf::published_file longer = file_of("bytes");
  longer.size = 6;
  EXPECT_FALSE(objects_.has(longer));
  EXPECT_FALSE(objects_.open(longer).is_open());
}

TEST_F(ObjectFolder, FindsWhatIsAbsentOfMany) {
  std::vector<zotconf::published_file> files;
  std::set<std::string> gone;
  for (int number = 0; number < 1000; ++number) {
    const std::string bytes = "file " + std::to_string(number);
    files.push_back(file_of(bytes));
    if (number % 3 == 0) {
      gone.insert(files.back().checksum);
    } else {
      take(bytes);
    }
  }
  files[1].size += 1;
  gone.insert(files[1].checksum);
  for (const std::string &invalid :
       {std::string(), std::string(".."), files[2].checksum.substr(0, 2)}) {
    files.push_back(files[2]);
    files.back().checksum = invalid;
    gone.insert(invalid);
  }
  std::vector<std::string> found;
  for (const zotconf::published_file *const file : objects_.absent(files)) {
    found.push_back(file->checksum);
  }
  EXPECT_EQ(found, std::vector<std::string>(gone.begin(), gone.end()));
}

TEST_F(ObjectFolder, OpensNoDamagedFile) {
  take("bytes");
  flip_bit(path("bytes"));
  EXPECT_TRUE(objects_.has(file_of("bytes"))) << "it is not read";
  EXPECT_FALSE(objects_.open(file_of("bytes")).is_open());
  take("bytes");
  EXPECT_TRUE(objects_.open(file_of("bytes")).is_open());
}

TEST_F(ObjectFolder, HasNothingWithoutADigest) {
  for (const std::string checksum : {"", "..", "ab"}) {
    zotconf::published_file file = file_of("bytes");
    file.checksum = checksum;
    EXPECT_FALSE(objects_.has(file));
    EXPECT_FALSE(objects_.open(file).is_open());
    objects_.remove(checksum);
  }
  EXPECT_TRUE(exists(dir_ / "objects"));
}

TEST_F(ObjectFolder, RemovesOneFile) {
  take("bytes");
  take("others");
  objects_.remove(sha256_hex("bytes"));
  EXPECT_FALSE(objects_.has(file_of("bytes")));
  EXPECT_TRUE(objects_.has(file_of("others")));
}

TEST_F(ObjectFolder, KeepsOnlyWhatItIsTold) {
  for (const std::string bytes : {"one", "two", "three"}) {
    take(bytes);
    write_bytes(objects_.partial(file_of(bytes + " in part")), "x");
  }
  const std::string file = sha256_hex("two");
  const std::string part = sha256_hex("three in part");
  objects_.keep_only({file}, {part});
  EXPECT_EQ(tree(dir_ / "objects").size(), 1U);
  EXPECT_TRUE(objects_.has(file_of("two")));
  EXPECT_EQ(tree(dir_ / "partial"), std::vector<std::string>{part});
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_ / "objects"), {}), 1) << "an empty folder";
}

TEST_F(ObjectFolder, CreatesItsFoldersAgain) {
  fs::remove_all(dir_ / "objects");
  fs::remove_all(dir_ / "partial");
  EXPECT_FALSE(objects_.has(file_of("bytes")));
  take("bytes");
  EXPECT_TRUE(objects_.has(file_of("bytes")));
}

}  // namespace
}  // namespace zot::test
