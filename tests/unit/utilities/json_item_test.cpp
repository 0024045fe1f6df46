// SPDX-License-Identifier: Apache-2.0
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace {

zot::json_tree parse(const std::string &text) {
  zot::json_tree tree(cJSON_Parse(text.c_str()));
  EXPECT_NE(tree, nullptr) << text;
  return tree;
}

TEST(GetJsonItem, ReadsANumberTruncatedAndSaturated) {
  const std::vector<std::pair<std::string, int32_t>> cases = {
      {"0", 0},
      {"42", 42},
      {"-42", -42},
      {"2.9", 2},
      {"-2.9", -2},
      {"2147483647", INT32_MAX},
      {"2147483648", INT32_MAX},
      {"1e300", INT32_MAX},
      {"-2147483648", INT32_MIN},
      {"-2147483649", INT32_MIN},
      {"-1e300", INT32_MIN},
  };
  for (const auto &[text, number] : cases) {
    const zot::json_tree tree = parse("{\"n\": " + text + "}");
    int32_t out = 99;
    EXPECT_EQ(get_json_item(tree.get(), "n", cJSON_Number, &out, 0), 0) << text;
    EXPECT_EQ(out, number) << text;
  }
}

TEST(GetJsonItem, NumberThatIsNoneReadsZero) {
  const zot::json_tree tree(cJSON_CreateObject());
  cJSON_AddNumberToObject(tree.get(), "n", 0)->valuedouble = std::nan("");
  int32_t out = 99;
  EXPECT_EQ(get_json_item(tree.get(), "n", cJSON_Number, &out, sizeof out), 0);
  EXPECT_EQ(out, 0);
}

TEST(GetJsonItem, ReadsTheTwoTruthValues) {
  const zot::json_tree tree = parse(R"({"yes": true, "no": false})");
  int32_t out = 99;
  EXPECT_EQ(get_json_item(tree.get(), "no", cJSON_False, &out, sizeof out), 0);
  EXPECT_EQ(out, 0);
  EXPECT_EQ(get_json_item(tree.get(), "yes", cJSON_True, &out, sizeof out), 0);
  EXPECT_EQ(out, 1);
}

TEST(GetJsonItem, ReadsAStringThatFitsWithItsTerminator) {
  const zot::json_tree tree = parse(R"({"s": "abc"})");
  char out[4] = "###";
  EXPECT_EQ(get_json_item(tree.get(), "s", cJSON_String, out, sizeof out), 0);
  EXPECT_STREQ(out, "abc");
}

TEST(GetJsonItem, StringThatDoesNotFitIsRefusedAndCopiesNothing) {
  const zot::json_tree tree = parse(R"({"s": "abc"})");
  char out[8] = "before";
  for (const size_t size : {0U, 1U, 3U}) {
    EXPECT_EQ(get_json_item(tree.get(), "s", cJSON_String, out, size), -1) << size;
    EXPECT_STREQ(out, "before");
  }
}

TEST(GetJsonItem, LetterCaseOfTheNameDoesNotCount) {
  const zot::json_tree tree = parse(R"({"ClusterId": 7})");
  int32_t out = 0;
  EXPECT_EQ(get_json_item(tree.get(), "clusterID", cJSON_Number, &out, sizeof out), 0);
  EXPECT_EQ(out, 7);
}

TEST(GetJsonItem, NumberIsNotReadFromAString) {
  const zot::json_tree tree = parse(R"({"s": "7"})");
  int32_t out = 99;
  EXPECT_EQ(get_json_item(tree.get(), "s", cJSON_Number, &out, sizeof out), -1);
  EXPECT_EQ(out, 99);
}

TEST(GetJsonItem, MemberOfAnotherTypeIsRefused) {
  const zot::json_tree tree =
      parse(R"({"s": "x", "n": 1, "yes": true, "no": false, "nil": null, "a": [], "o": {}})");
  const std::vector<std::pair<int, std::string>> members = {{cJSON_String, "s"},
                                                            {cJSON_Number, "n"},
                                                            {cJSON_True, "yes"},
                                                            {cJSON_False, "no"},
                                                            {0, "nil"},
                                                            {0, "a"},
                                                            {0, "o"}};
  for (const int wanted : {cJSON_False, cJSON_True, cJSON_Number, cJSON_String}) {
    for (const auto &[type, name] : members) {
      char out[8] = {};
      const int expected = type == wanted ? 0 : -1;
      EXPECT_EQ(get_json_item(tree.get(), name.c_str(), wanted, out, sizeof out), expected)
          << name << " as " << wanted;
    }
  }
}

TEST(GetJsonItem, UnsupportedTypeIsOneOnceTheMemberIsFound) {
  const zot::json_tree tree = parse(R"({"nil": null, "n": 1, "a": []})");
  int32_t out = 99;
  for (const char *name : {"nil", "n", "a"}) {
    for (const int type : {0, 3, cJSON_NULL, cJSON_Array, cJSON_Object, -1}) {
      EXPECT_EQ(get_json_item(tree.get(), name, type, &out, sizeof out), 1) << name << type;
    }
  }
  EXPECT_EQ(out, 99);
}

TEST(GetJsonItem, AbsentMemberIsRefusedWhateverTheType) {
  const zot::json_tree tree = parse(R"({"n": 1})");
  int32_t out = 99;
  EXPECT_EQ(get_json_item(tree.get(), "absent", cJSON_Number, &out, sizeof out), -1);
  EXPECT_EQ(get_json_item(tree.get(), "absent", cJSON_Array, &out, sizeof out), -1);
}

TEST(GetJsonItem, MissingArgumentsAreRefused) {
  const zot::json_tree tree = parse(R"({"n": 1, "": 2})");
  int32_t out = 99;
  EXPECT_EQ(get_json_item(nullptr, "n", cJSON_Number, &out, sizeof out), -1);
  EXPECT_EQ(get_json_item(tree.get(), nullptr, cJSON_Number, &out, sizeof out), -1);
  EXPECT_EQ(get_json_item(tree.get(), "", cJSON_Number, &out, sizeof out), -1);
  EXPECT_EQ(get_json_item(tree.get(), "n", cJSON_Number, nullptr, sizeof out), -1);
  EXPECT_EQ(out, 99);
}

TEST(PrintCjson, WritesTheTreeToStandardOutput) {
  const zot::json_tree tree = parse(R"({"a": 1})");
  testing::internal::CaptureStdout();
  print_cjson(tree.get());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "{\n\t\"a\":\t1\n}\n");
}

TEST(PrintCjson, NothingPrintsNothing) {
  testing::internal::CaptureStdout();
  print_cjson(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
