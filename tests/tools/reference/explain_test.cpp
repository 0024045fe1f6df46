// SPDX-License-Identifier: Apache-2.0
#include "tools/reference/explain.hpp"

#include <gtest/gtest.h>

#include "tests/tools/support/process.hpp"
#include "tools/reference/statuses.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

constexpr int ok = 0;
constexpr int usage = 2;

bool has(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

class ExplainWords : public testing::TestWithParam<const char *> {};

TEST_P(ExplainWords, FindThisStatus) {
  const finished done = run_zotconf({"explain", GetParam()});
  EXPECT_EQ(done.status, ok) << done.err;
  EXPECT_TRUE(done.out.starts_with("ZOT_ERR_CORRUPTED (-8): Configuration file corrupted\n"))
      << done.out;
}

INSTANTIATE_TEST_SUITE_P(Accepted, ExplainWords,
                         testing::Values("-8", "ZOT_ERR_CORRUPTED", "zot_err_corrupted",
                                         "corrupted", "Corrupted", "ERR_CORRUPTED"));

class ExplainUnknown : public testing::TestWithParam<const char *> {};

TEST_P(ExplainUnknown, IsWrongUsage) {
  const finished done = run_zotconf({"explain", GetParam()});
  EXPECT_EQ(done.status, usage);
  EXPECT_EQ(done.out, "");
  EXPECT_EQ(done.err, "zotconf: \"" + std::string(GetParam()) +
                          "\" is not a status; `zotconf explain` lists them\n");
}

INSTANTIATE_TEST_SUITE_P(Refused, ExplainUnknown,
                         testing::Values("8", "-2", "-99", "-8x", "99999999999999999999", "corrupt",
                                         "ZOT_", "ZOT_ERR_NO_UPDATE", "same as corrupted"));

TEST(Explain, TellsEveryAspectAndTheCalls) {
  const finished done = run_zotconf({"explain", "no_cache"});
  EXPECT_TRUE(done.out.starts_with("ZOT_ERR_NO_CACHE (-12)\n\nMeaning     Nothing cached"))
      << done.out;
  for (const char *const part :
       {"\nRetry       ", "\nFault       ", "\nCache       ", "\nWhat to do  ",
        "\nzot_conf_get()\n    cached entries", "\nzot_util_get_k_meta()\n"}) {
    EXPECT_TRUE(has(done.out, part)) << part << '\n' << done.out;
  }
}

TEST(Explain, TellsOfALockWhereACallMayHaveWaitedForOne) {
  const std::string text = run_zotconf({"explain", "timeout"}).out;
  EXPECT_TRUE(has(text, "another process held the lock")) << text;
  EXPECT_TRUE(has(text, "\nzot_conf_commit(), zot_conf_roll_back()\n    a directory stayed locked"))
      << text;
}

TEST(Explain, KeepsLinesShort) {
  for (const zotconf::status_entry &entry : zotconf::all_statuses()) {
    const std::string text = run_zotconf({"explain", std::string(entry.name)}).out;
    for (size_t at = 0; at < text.size();) {
      const size_t end = text.find('\n', at);
      EXPECT_LE(end - at, 80U) << text.substr(at, end - at);
      at = end + 1;
    }
  }
}

TEST(Explain, ListsAllWithoutAnArgument) {
  const finished done = run_zotconf({"explain"});
  EXPECT_EQ(done.status, ok);
  for (const zotconf::status_entry &entry : zotconf::all_statuses()) {
    const std::string row = std::to_string(entry.advice->code) + "  " + std::string(entry.name);
    EXPECT_TRUE(has(done.out, row)) << row;
  }
}

TEST(Explain, PrintsJson) {
  const finished one = run_zotconf({"explain", "-13", "--json"});
  const zot::json_tree root(cJSON_Parse(one.out.c_str()));
  const cJSON *const list = cJSON_GetObjectItemCaseSensitive(root.get(), "statuses");
  ASSERT_EQ(cJSON_GetArraySize(list), 1) << one.out;
  const cJSON *const item = cJSON_GetArrayItem(list, 0);
  const auto text_of = [item](const char *key) {
    const char *const text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(item, key));
    return std::string(text != nullptr ? text : "");
  };
  EXPECT_EQ(text_of("name"), "ZOT_ERR_SAME_AS_CORRUPTED");
  EXPECT_EQ(cJSON_GetObjectItemCaseSensitive(item, "number")->valueint, -13);
  EXPECT_TRUE(cJSON_IsNull(cJSON_GetObjectItemCaseSensitive(item, "text")));
  EXPECT_EQ(text_of("fault"), "controller");
  EXPECT_NE(text_of("meaning") + text_of("retry") + text_of("cache") + text_of("action"), "");
  EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(item, "causes")), 1);

  const zot::json_tree all(cJSON_Parse(run_zotconf({"explain", "--json"}).out.c_str()));
  EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(all.get(), "statuses")),
            static_cast<int>(zotconf::all_statuses().size()));
}

TEST(Explain, PrintsTheDocument) {
  const finished done = run_zotconf({"explain", "--markdown"});
  EXPECT_EQ(done.status, ok);
  EXPECT_EQ(done.out, read_bytes(ZOTCONF_ERRORS_DOCUMENT))
      << "to update it: zotconf explain --markdown >docs/errors.md";
}

TEST(Explain, TakesTheDocumentOrAStatusButNotBoth) {
  EXPECT_EQ(run_zotconf({"explain", "--markdown", "-8"}).status, usage);
}

}  // namespace
}  // namespace zot::test
