// SPDX-License-Identifier: Apache-2.0
#include "tools/model/manifest.hpp"

#include <gtest/gtest.h>

namespace zotconf {
namespace {

// The text must not change between versions: an element takes another text for another
// configuration.
TEST(RenderManifest, WritesTheSameTextAsEver) {
  const manifest content{.cluster = "c\"1",
                         .config_id = "id",
                         .firmware = "1.2",
                         .files = {{.category = 0,
                                    .category_name = "Wlan",
                                    .key = "a",
                                    .version = 3,
                                    .size = 2147483647,
                                    .checksum = "ab"}}};
  EXPECT_EQ(render_manifest(content),
            "{\n"
            "\t\"clusterId\":\t\"c\\\"1\",\n"
            "\t\"firmwareVersion\":\t\"1.2\",\n"
            "\t\"configId\":\t\"id\",\n"
            "\t\"gpbs\":\t[{\n"
            "\t\t\t\"path\":\t\"/Wlan/a/3\",\n"
            "\t\t\t\"size\":\t2147483647,\n"
            "\t\t\t\"checksum\":\t\"ab\"\n"
            "\t\t}]\n"
            "}\n");
}

TEST(RenderManifest, SaysNothingOfWhatIsEmpty) {
  EXPECT_EQ(render_manifest({.cluster = "c", .config_id = "", .firmware = "", .files = {}}),
            "{\n\t\"clusterId\":\t\"c\",\n\t\"gpbs\":\t[]\n}\n");
}

}  // namespace
}  // namespace zotconf
