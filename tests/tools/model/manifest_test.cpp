// SPDX-License-Identifier: Apache-2.0
#include "tools/model/manifest.hpp"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include "utilities/owner.hpp"

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

TEST(RenderManifest, EscapesNamesAsAJsonLibraryDoes) {
  manifest content{.cluster = "c", .config_id = "", .firmware = "", .files = {}};
  for (const std::string key : {"with \"quotes\"", "back\\slash",
                                "k\xc3\xbc"
                                "che",
                                "tab\t", "\x7f"}) {
    content.files.push_back({.category = 0,
                             .category_name = "Wlan",
                             .key = key,
                             .version = 1,
                             .size = 2,
                             .checksum = "ab"});
  }
  const std::string text = render_manifest(content);
  const zot::json_tree tree(cJSON_Parse(text.c_str()));
  const zot::c_text printed(cJSON_Print(tree.get()));
  EXPECT_EQ(text, std::string(printed.get()) + "\n");
  EXPECT_EQ(parse_manifest(text).value().files[1].key, "back\\slash");
}

std::string k_with_path(const std::string &path) {
  return R"({"clusterId": "c", "gpbs": [{"path": ")" + path +
         R"(", "size": 1, "checksum": "ab"}]})";
}

TEST(ParseManifest, ReadsWhatRenderManifestWrites) {
  const manifest content{.cluster = "c",
                         .config_id = "",
                         .firmware = "",
                         .who = {.subsys = "AP", .index = "0A"},
                         .sequence = 7,
                         .files = {{.category = 0,
                                    .category_name = "Wlan",
                                    .key = "a",
                                    .version = 3,
                                    .size = 5,
                                    .checksum = "ab"}}};
  const std::string text = render_manifest(content);
  const auto read = parse_manifest(text);
  ASSERT_TRUE(read);
  EXPECT_EQ(render_manifest(*read), text);
}

TEST(ParseManifest, RefusesAPathThatIsWrittenInAnotherWay) {
  EXPECT_TRUE(parse_manifest(k_with_path("/Wlan/a/7")));
  for (const char *const path : {"Wlan/a/7", "/Wlan/a/007", "/Wlan/a/0x7", "/Wlan/a/7/", "/Wlan//7",
                                 "//Wlan/a/7", "/Wlan/7", ""}) {
    EXPECT_FALSE(parse_manifest(k_with_path(path))) << path;
  }
}

TEST(ParseManifest, KeepsAFileOfAnotherCategoryOnlyIfAsked) {
  const std::string text = k_with_path("/Tomorrow/a/7");
  EXPECT_FALSE(parse_manifest(text));
  const auto read = parse_manifest(text, other_category::kept);
  ASSERT_TRUE(read);
  ASSERT_EQ(read->files.size(), 1U);
  EXPECT_EQ(read->files[0].category, -1);
  EXPECT_EQ(read->files[0].category_name, "Tomorrow");
}

TEST(ParseManifest, ReadsTheElementOnlyWithASequence) {
  const std::string start = R"({"clusterId":"c","subsys":"AP","index":"1","gpbs":[],"sequence":)";
  const auto numbered = parse_manifest(start + "7}");
  ASSERT_TRUE(numbered);
  EXPECT_EQ(numbered->sequence, 7U);
  EXPECT_EQ(numbered->who.subsys, "AP");
  EXPECT_EQ(numbered->who.index, "1");
  for (const char *const sequence : {"0}", "-1}", "1.5}", "1e300}", "\"7\"}", "null}"}) {
    const auto other = parse_manifest(start + sequence);
    ASSERT_TRUE(other) << sequence;
    EXPECT_EQ(other->sequence, 0U) << sequence;
    EXPECT_EQ(other->who.subsys + other->who.index, "") << sequence;
  }
}

// A text in the form that render_manifest() writes is not read by the JSON library. A blank after
// it changes no content, but the form.
void expect_same_as_json(const std::string &text) {
  const auto read = parse_manifest(text, other_category::kept);
  const auto as_json = parse_manifest(text + " ", other_category::kept);
  ASSERT_EQ(read.has_value(), as_json.has_value()) << text;
  if (read) {
    EXPECT_EQ(render_manifest(*read), render_manifest(*as_json)) << text;
  }
}

std::string rendered_k() {
  manifest content{.cluster = "c\"\n\t\"gpbs\":\t[",
                   .config_id = "id",
                   .firmware = "",
                   .who = {.subsys = "AP", .index = "0A"},
                   .sequence = 7,
                   .files = {}};
  for (const std::string key : {"a", "with \"quotes\"", "z"}) {
    content.files.push_back({.category = 0,
                             .category_name = "Wlan",
                             .key = key,
                             .version = 12,
                             .size = 340,
                             .checksum = "ab"});
  }
  return render_manifest(content);
}

TEST(ParseManifest, ReadsItsOwnFormAsTheJsonLibraryDoes) {
  const std::string plain = render_manifest({.cluster = "c",
                                             .config_id = "",
                                             .firmware = "",
                                             .files = {{.category = 0,
                                                        .category_name = "Wlan",
                                                        .key = "a",
                                                        .version = 3,
                                                        .size = 50,
                                                        .checksum = "ab"},
                                                       {.category = 0,
                                                        .category_name = "Zone",
                                                        .key = "b",
                                                        .version = 4,
                                                        .size = 6,
                                                        .checksum = "cd"}}});
  ASSERT_EQ(parse_manifest(plain).value().files.size(), 2U);
  ASSERT_EQ(parse_manifest(rendered_k()).value().files.size(), 3U);
  for (const std::string &text : {plain, rendered_k()}) {
    expect_same_as_json(text);
    for (size_t at = 0; at < text.size(); ++at) {
      expect_same_as_json(text.substr(0, at));
      expect_same_as_json(text.substr(0, at) + text.substr(at + 1));
      for (const char other : std::string("\"\\/,:{}[] \n\t0+-.ex\x7f\xff") + '\0') {
        std::string changed = text;
        changed[at] = other;
        expect_same_as_json(changed);
        expect_same_as_json(text.substr(0, at) + other + text.substr(at));
      }
    }
  }
}

TEST(ParseManifest, ReadsTheFirstOfTwoLists) {
  const std::string entry =
      "{\n\t\t\t\"path\":\t\"/Wlan/a/3\",\n\t\t\t\"size\":\t5,\n\t\t\t\"checksum\":\t\"ab\"\n\t\t}";
  const std::string list = "\n\t\"gpbs\":\t[" + entry + "]";
  EXPECT_EQ(parse_manifest("{" + list + "\n}\n").value().files.size(), 1U);
  EXPECT_EQ(parse_manifest("{\"gpbs\":[]," + list + "\n}\n").value().files.size(), 0U);
  EXPECT_EQ(parse_manifest("{\"GPBS\":[]," + list + "\n}\n").value().files.size(), 0U);
  EXPECT_FALSE(parse_manifest("{\"a\":{" + list + "\n}\n"));
}

manifest with_files(size_t count) {
  manifest content{.cluster = "c\"\\",
                   .config_id = "id",
                   .firmware = "1.2",
                   .who = {.subsys = "AP", .index = "0A"},
                   .sequence = 7,
                   .files = {}};
  for (size_t i = 0; i < count; ++i) {
    content.files.push_back({.category = 0,
                             .category_name = "Wlan",
                             .key = "a]}\"\\{[" + std::to_string(i),
                             .version = 1,
                             .size = 2,
                             .checksum = "ab"});
  }
  return content;
}

TEST(ParseManifestHead, ReadsEverythingButTheFiles) {
  for (const size_t count : {0, 1, 500}) {
    const auto head = parse_manifest_head(render_manifest(with_files(count)));
    ASSERT_TRUE(head) << count;
    EXPECT_EQ(head->cluster, "c\"\\");
    EXPECT_EQ(head->config_id, "id");
    EXPECT_EQ(head->firmware, "1.2");
    EXPECT_EQ(head->who.subsys, "AP");
    EXPECT_EQ(head->who.index, "0A");
    EXPECT_EQ(head->sequence, 7U);
    EXPECT_TRUE(head->files.empty());
  }
}

TEST(ParseManifestHead, ReadsMembersBehindTheList) {
  const auto head = parse_manifest_head(
      R"({"gpbs": [{"configId": "inner", "x": [[{}]]}, "]"], "extra": {"configId": "inner"},
          "configId": "outer"} )");
  ASSERT_TRUE(head);
  EXPECT_EQ(head->config_id, "outer");
}

TEST(ParseManifestHead, RefusesATextThatIsCutOffAnywhere) {
  std::string text = render_manifest(with_files(2));
  text.resize(text.rfind('}') + 1);
  EXPECT_TRUE(parse_manifest_head(text));
  for (size_t size = 0; size < text.size(); ++size) {
    EXPECT_FALSE(parse_manifest_head(std::string_view(text).substr(0, size))) << size;
  }
}

TEST(ParseManifestHead, RefusesWhatIsNoKnowledgeFile) {
  for (const std::string text :
       {"", "[]", "{}", "{\"gpbs\":{}}", "{\"gpbs\":[]} x", "}{\"gpbs\":[]}", "\"", "\"\\"}) {
    EXPECT_FALSE(parse_manifest_head(text)) << text;
  }
}

TEST(ParseManifestHead, SurvivesDeepNesting) {
  const std::string deep(1000000, '[');
  EXPECT_FALSE(parse_manifest_head("{\"gpbs\":" + deep));
  EXPECT_FALSE(parse_manifest_head(deep));
}

}  // namespace
}  // namespace zotconf
