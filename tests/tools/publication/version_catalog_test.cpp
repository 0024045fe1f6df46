// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/version_catalog.hpp"

#include <gtest/gtest.h>

#include "tests/support/files.hpp"

namespace zotconf {
namespace {

class VersionCatalog : public testing::Test {
 protected:
  [[nodiscard]] static published_file file_of(const std::string &bytes, uint64_t version = 0) {
    return {.category = 0,
            .category_name = "Wlan",
            .key = "a",
            .version = version,
            .size = bytes.size(),
            .checksum = sha256_text(bytes)};
  }
  void put(const std::string &version, const std::string &bytes) const {
    zot::test::write_bytes(dir_ / ("config/Wlan/a/" + version), bytes);
  }

  zot::test::temp_dir dir_;
  publication_store store_{dir_.path()};
};

TEST_F(VersionCatalog, ChoosesTheHighestVersionWithTheseBytes) {
  put("1", "one");
  put("2", "two");
  put("3", "one");
  put("4", "longer");
  version_catalog catalog(store_);
  EXPECT_EQ(catalog.choose(file_of("one"), 0), 3U);
  EXPECT_EQ(catalog.choose(file_of("two"), 0), 2U);
  EXPECT_EQ(catalog.choose(file_of("longer"), 0), 4U);
  EXPECT_EQ(catalog.choose(file_of("six"), 0), 5U);
}

TEST_F(VersionCatalog, ChoosesAVersionAboveAllThatWereUsed) {
  put("2", "two");
  EXPECT_EQ(version_catalog(store_).choose(file_of("six"), 7), 8U);
  zot::test::write_bytes(dir_ / ".spent", "9\n");
  EXPECT_EQ(version_catalog(store_).choose(file_of("six"), 7), 10U);
}

TEST_F(VersionCatalog, HasNoVersionLeftAfterTheHighest) {
  put("18446744073709551615", "one");
  version_catalog catalog(store_);
  EXPECT_THROW(static_cast<void>(catalog.choose(file_of("two"), 0)), std::runtime_error);
}

TEST_F(VersionCatalog, CountsTheVersionsThatItAdds) {
  version_catalog catalog(store_);
  EXPECT_EQ(catalog.use(file_of("one", catalog.choose(file_of("one"), 0))),
            version_state::to_write);
  EXPECT_EQ(catalog.choose(file_of("one"), 0), 1U) << "the same bytes for another element";
  EXPECT_EQ(catalog.use(file_of("one", 1)), version_state::being_written);
  EXPECT_EQ(catalog.choose(file_of("two"), 0), 2U);
}

TEST_F(VersionCatalog, KnowsAStoredFileByItsBytes) {
  put("1", "one");
  version_catalog catalog(store_);
  EXPECT_EQ(catalog.use(file_of("one", 1)), version_state::stored);
  EXPECT_EQ(catalog.use(file_of("one", 1)), version_state::stored);
  EXPECT_EQ(catalog.use(file_of("one", 2)), version_state::to_write);
}

TEST_F(VersionCatalog, ReadsAStoredFileOnce) {
  put("1", "one");
  version_catalog catalog(store_);
  ASSERT_EQ(catalog.use(file_of("one", 1)), version_state::stored);
  put("1", "two");
  EXPECT_EQ(catalog.use(file_of("one", 1)), version_state::stored);
}

TEST_F(VersionCatalog, ForgetsTheBytesOfADamagedFile) {
  put("1", "bad");
  version_catalog catalog(store_);
  EXPECT_EQ(catalog.choose(file_of("six"), 0), 2U);
  EXPECT_EQ(catalog.use(file_of("one", 1)), version_state::to_write);
  EXPECT_EQ(catalog.choose(file_of("bad"), 0), 2U);
  EXPECT_EQ(catalog.choose(file_of("one"), 0), 1U);
}

TEST_F(VersionCatalog, DoesNotReadAFileThatIsToBeReplaced) {
  put("1", "bad");
  version_catalog catalog(store_);
  EXPECT_EQ(catalog.use(file_of("one", 1)), version_state::to_write);
  EXPECT_EQ(catalog.choose(file_of("bad"), 0), 2U);
}

TEST_F(VersionCatalog, GivesAVersionToOneContentOnly) {
  version_catalog catalog(store_);
  EXPECT_EQ(catalog.use(file_of("one", 3)), version_state::to_write);
  EXPECT_EQ(catalog.use(file_of("two", 3)), version_state::taken);
  EXPECT_EQ(catalog.choose(file_of("two"), 3), 4U);
}

TEST_F(VersionCatalog, PrefersAnUnreadHigherVersionToAKnownOne) {
  put("1", "one");
  put("3", "one");
  version_catalog catalog(store_);
  EXPECT_EQ(catalog.use(file_of("one", 1)), version_state::stored);
  EXPECT_EQ(catalog.choose(file_of("one"), 0), 3U);
}

}  // namespace
}  // namespace zotconf
