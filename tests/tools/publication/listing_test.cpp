// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/listing.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/files.hpp"

namespace zot::test {
namespace {

void write_k(const temp_dir &dir, const std::string &subsys, const std::string &index,
             const std::string &k) {
  const std::string path = dir / ("file/knowledge/" + subsys + "/" + index + "/latest/" + index);
  write_bytes(path + ".k", k);
  write_bytes(path + ".checksum", "sum");
}

TEST(KListing, FindsEachElementThatHasAK) {
  const temp_dir dir;
  write_k(dir, "DP", "2", "k");
  write_k(dir, "AP", "3", "k");
  write_k(dir, "AP", "1", "k");
  std::filesystem::create_directories(dir / "file/knowledge/AP/4/latest");
  const auto found = zotconf::list_k_files(dir.path());
  ASSERT_EQ(found.size(), 3);
  EXPECT_EQ(found[0].who.index, "1");
  EXPECT_EQ(found[1].who.index, "3");
  EXPECT_EQ(found[2].who.subsys, "DP");
}

TEST(KListing, FindsNothingWhereNothingIsPublished) {
  const temp_dir dir;
  EXPECT_TRUE(zotconf::list_k_files(dir.path()).empty());
}

TEST(KListing, FailsWhereThereIsNoFolder) {
  const temp_dir dir;
  EXPECT_THROW((void)zotconf::list_k_files(dir / "none"), std::filesystem::filesystem_error);
}

TEST(KListing, TellsAFileThatWasReplaced) {
  const temp_dir dir;
  write_k(dir, "AP", "1", "k");
  const auto before = zotconf::list_k_files(dir.path()).at(0);
  EXPECT_TRUE(before.is_same(zotconf::list_k_files(dir.path()).at(0)));
  write_bytes(dir / "file/knowledge/AP/1/latest/1.k", "another");
  EXPECT_FALSE(before.is_same(zotconf::list_k_files(dir.path()).at(0)));
}

TEST(KListing, TellsALinkFromTheFileThatItLeadsTo) {
  const temp_dir dir;
  write_k(dir, "AP", "1", "k");
  const auto before = zotconf::list_k_files(dir.path()).at(0);
  const std::string k = dir / "file/knowledge/AP/1/latest/1.k";
  std::filesystem::rename(k, dir / "elsewhere");
  std::filesystem::create_symlink(dir / "elsewhere", k);
  EXPECT_FALSE(before.is_same(zotconf::list_k_files(dir.path()).at(0)));
}

}  // namespace
}  // namespace zot::test
