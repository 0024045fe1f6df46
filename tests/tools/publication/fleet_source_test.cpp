// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/fleet_source.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/files.hpp"
#include "tools/publication/source_folder.hpp"

namespace zotconf {
namespace {

class FleetSource : public testing::Test {
 protected:
  void put(const std::string &name, const std::string &bytes) const {
    zot::test::write_bytes(dir_ / name, bytes);
  }
  [[nodiscard]] fleet_source scan() const { return scan_fleet(dir_.path(), where_); }
  // The merged files of an element as "folder:key=size".
  [[nodiscard]] static std::vector<std::string> merged(fleet_source &source, size_t element) {
    std::vector<std::string> result;
    for (const merged_file &each : merge(source, source.elements.at(element))) {
      result.push_back(each.folder->filename().string() + ":" + each.file->key + "=" +
                       std::to_string(each.file->size));
    }
    return result;
  }

  zot::test::temp_dir dir_;
  mutable std::ostringstream out_;
  mutable std::ostringstream err_;
  console where_{out_, err_};
};

using texts = std::vector<std::string>;

TEST_F(FleetSource, ListsTheElementsByIndexInUpperCase) {
  put("elements/0b/Wlan/a", "a");
  put("elements/0A/Wlan/a", "a");
  const fleet_source source = scan();
  ASSERT_EQ(source.elements.size(), 2U);
  EXPECT_EQ(source.elements[0].index, "0A");
  EXPECT_EQ(source.elements[1].index, "0B");
  EXPECT_TRUE(source.refused.empty());
}

TEST_F(FleetSource, MergesOwnFilesOverCommonOnesInTheirOrder) {
  put("common/Wlan/b", "12");
  put("common/Wlan/d", "12");
  put("common/Wlan/f", "12");
  put("elements/0A/Wlan/a", "1");
  put("elements/0A/Wlan/d", "1");
  put("elements/0A/Wlan/e", "1");
  put("elements/0A/Wlan/g", "1");
  fleet_source source = scan();
  EXPECT_EQ(merged(source, 0),
            (texts{"0A:a=1", "common:b=2", "0A:d=1", "0A:e=1", "common:f=2", "0A:g=1"}));
}

TEST_F(FleetSource, RemovesCommonFilesButNotOwnOnes) {
  put("common/Wlan/a", "12");
  put("common/Wlan/b", "12");
  put("common/Wlan/c", "12");
  put("elements/0A/Wlan/b", "1");
  put("elements/0A/removed", "Wlan/c\nWlan/b\nWlan/c\n");
  fleet_source source = scan();
  EXPECT_EQ(merged(source, 0), (texts{"common:a=2", "0A:b=1"}));
}

TEST_F(FleetSource, SkipsFilesOfEditorsAndOtherFilesBesideTheFolders) {
  put("README", "x");
  put(".git/HEAD", "x");
  put("elements/.keep", "");
  put("elements/0A/Wlan/a", "a");
  put("elements/0A/Wlan/a~", "a");
  const fleet_source source = scan();
  EXPECT_EQ(source.left_out.size(), 4U);
  EXPECT_TRUE(source.refused.empty());
  EXPECT_EQ(source.elements.size(), 1U);
}

TEST_F(FleetSource, RefusesBothFoldersOfOneElement) {
  put("elements/0a/Wlan/a", "a");
  put("elements/0A/Wlan/a", "a");
  put("elements/0B/Wlan/a", "a");
  const fleet_source source = scan();
  ASSERT_EQ(source.refused.size(), 2U);
  EXPECT_EQ(source.refused[0].index, "0A");
  EXPECT_EQ(source.refused[1].index, "0A");
  ASSERT_EQ(source.elements.size(), 1U);
  EXPECT_EQ(source.elements[0].index, "0B");
}

TEST_F(FleetSource, NamesNoElementForARefusedCommonFile) {
  put("common/Wlan/a", "");
  put("elements/0A/Wlan/a", "a");
  const fleet_source source = scan();
  ASSERT_EQ(source.refused.size(), 1U);
  EXPECT_EQ(source.refused[0].index, "");
  EXPECT_FALSE(source.is_common_known);
}

TEST_F(FleetSource, IsNoFleetWithoutElements) {
  put("common/Wlan/a", "a");
  EXPECT_THROW(static_cast<void>(scan()), refusal);
}

}  // namespace
}  // namespace zotconf
