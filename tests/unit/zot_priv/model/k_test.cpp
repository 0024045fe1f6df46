// SPDX-License-Identifier: Apache-2.0
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"
#include "zot_priv/model/parsed_k.hpp"

namespace {

using namespace zot::test::model;

template <size_t Size>
void set_text(char (&field)[Size], const char *text) {
  std::snprintf(field, Size, "%s", text);
}

// A K that owns everything a K can own.
zot::k_owner full_k() {
  const std::string text = R"({"clusterId":"c-1","gpbs":[{"path":"/Wlan/a/1"}]})";
  zot::k_owner k = k_with_data(text);
  zot_priv_k_set_path(k.get(), "/somewhere/subsys.k");
  zot_priv_k_set_root(k.get(), "/somewhere");
  set_text(k->checksum, std::string(64, 'a').c_str());
  set_text(k->meta.firmware_version, "1.2.3");
  set_text(k->meta.config_id, "config-1");
  set_text(k->meta.cluster_id, "c-1");
  zot::parsed_k parsed = zot::parse_k(text.c_str(), nullptr);
  cJSON *const gpbs = cJSON_GetObjectItem(parsed->tree, "gpbs");
  zot::keep_parsed(*k, std::move(parsed), gpbs);
  return k;
}

TEST(FreeK, MissingHandleIsRefused) {
  const zot::k_owner k = full_k();
  EXPECT_EQ(zot_priv_free_k(nullptr, k.get()), ZOT_ERR_NULL_INPUT);
  EXPECT_NE(k->data, nullptr);
}

TEST(FreeK, MissingRecordIsRefused) {
  model_handle handle;
  EXPECT_EQ(zot_priv_free_k(handle.get(), nullptr), ZOT_ERR_NULL_INPUT);
}

TEST(FreeK, RecordWithoutDataIsRefusedAndKeepsRootAndTree) {
  model_handle handle;
  const zot::k_owner k = full_k();
  k->data_len = 0;
  const zot_k before = *k;
  EXPECT_EQ(zot_priv_free_k(handle.get(), k.get()), ZOT_ERR_WRONG_INPUT);
  EXPECT_STREQ(k->root, "/somewhere");
  EXPECT_EQ(k->json, before.json);
  EXPECT_EQ(k->gpbs, before.gpbs);
  EXPECT_EQ(k->path, before.path);
}

TEST(FreeK, ClearsAllThatTheRecordOwned) {
  model_handle handle;
  const zot::k_owner k = full_k();
  EXPECT_EQ(zot_priv_free_k(handle.get(), k.get()), ZOT_OK);
  EXPECT_EQ(k->root, nullptr);
  EXPECT_EQ(k->json, nullptr);
  EXPECT_EQ(k->gpbs, nullptr);
  EXPECT_EQ(k->path, nullptr);
  EXPECT_EQ(k->data, nullptr);
}

TEST(FreeK, ClearsLengthAndChecksum) {
  model_handle handle;
  const zot::k_owner k = full_k();
  zot_priv_free_k(handle.get(), k.get());
  EXPECT_EQ(k->data_len, 0U);
  EXPECT_EQ(std::string(k->checksum, sizeof k->checksum), std::string(sizeof k->checksum, '\0'));
}

TEST(FreeK, KeepsTheMetadata) {
  model_handle handle;
  const zot::k_owner k = full_k();
  zot_priv_free_k(handle.get(), k.get());
  EXPECT_STREQ(k->meta.firmware_version, "1.2.3");
  EXPECT_STREQ(k->meta.config_id, "config-1");
  EXPECT_STREQ(k->meta.cluster_id, "c-1");
}

TEST(FreeK, SecondReleaseIsRefused) {
  model_handle handle;
  const zot::k_owner k = full_k();
  zot_priv_free_k(handle.get(), k.get());
  EXPECT_EQ(zot_priv_free_k(handle.get(), k.get()), ZOT_ERR_WRONG_INPUT);
}

struct text_setter {
  const char *name;
  char *(*set)(zot_k *, const char *);
  char *zot_k::*field;
};

class KText : public testing::TestWithParam<text_setter> {};

TEST_P(KText, HoldsACopy) {
  const zot::k_owner k = zot::make_k();
  std::string text = "/a/place";
  const char *const stored = GetParam().set(k.get(), text.c_str());
  text.assign("changed since");
  EXPECT_EQ(stored, k.get()->*GetParam().field);
  EXPECT_STREQ(stored, "/a/place");
}

TEST_P(KText, IsReplacedByTheNextOne) {
  const zot::k_owner k = zot::make_k();
  GetParam().set(k.get(), "/first");
  GetParam().set(k.get(), "/second");
  EXPECT_STREQ(k.get()->*GetParam().field, "/second");
}

TEST_P(KText, IsCutTo4096Characters) {
  const zot::k_owner k = zot::make_k();
  const std::string text(5000, 'p');
  EXPECT_EQ(GetParam().set(k.get(), text.c_str()), text.substr(0, 4096));
}

TEST_P(KText, MayBeSetToItself) {
  const zot::k_owner k = zot::make_k();
  GetParam().set(k.get(), "/a/place");
  GetParam().set(k.get(), k.get()->*GetParam().field);
  EXPECT_STREQ(k.get()->*GetParam().field, "/a/place");
}

TEST_P(KText, NeedsARecord) {
  EXPECT_EQ(GetParam().set(nullptr, "/a/place"), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Model, KText,
                         testing::Values(text_setter{"Path", zot_priv_k_set_path, &zot_k::path},
                                         text_setter{"Root", zot_priv_k_set_root, &zot_k::root}),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(CopyK, MissingRecordIsRefused) {
  const zot::k_owner k = full_k();
  EXPECT_EQ(zot_priv_k_cpy(nullptr, k.get()), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(zot_priv_k_cpy(k.get(), nullptr), ZOT_ERR_WRONG_INPUT);
}

TEST(CopyK, RecordOntoItselfIsRefused) {
  const zot::k_owner k = full_k();
  EXPECT_EQ(zot_priv_k_cpy(k.get(), k.get()), ZOT_ERR_WRONG_INPUT);
  EXPECT_STREQ(k->path, "/somewhere/subsys.k");
}

TEST(CopyK, CopiesTheFilePart) {
  const zot::k_owner k = full_k();
  const zot::k_owner copy = zot::make_k();
  EXPECT_EQ(zot_priv_k_cpy(k.get(), copy.get()), ZOT_OK);
  EXPECT_STREQ(copy->path, k->path);
  EXPECT_EQ(std::string(copy->data, copy->data_len), std::string(k->data, k->data_len));
  EXPECT_STREQ(copy->checksum, k->checksum);
}

TEST(CopyK, HoldsBytesOfItsOwn) {
  const zot::k_owner k = full_k();
  const zot::k_owner copy = zot::make_k();
  zot_priv_k_cpy(k.get(), copy.get());
  EXPECT_NE(copy->path, k->path);
  EXPECT_NE(copy->data, k->data);
}

TEST(CopyK, CopiesBytesThatAreNoText) {
  const zot::k_owner k = k_with_data("a-b");
  k->data[1] = '\0';
  const zot::k_owner copy = zot::make_k();
  zot_priv_k_cpy(k.get(), copy.get());
  EXPECT_EQ(std::string(copy->data, copy->data_len), std::string("a\0b", 3));
}

TEST(CopyK, LeavesTheParsedPartAlone) {
  const zot::k_owner k = full_k();
  const zot::k_owner copy = zot::make_k();
  zot_priv_k_cpy(k.get(), copy.get());
  EXPECT_EQ(copy->root, nullptr);
  EXPECT_EQ(copy->json, nullptr);
  EXPECT_EQ(copy->gpbs, nullptr);
}

TEST(CopyK, LeavesTheMetadataAlone) {
  const zot::k_owner k = full_k();
  const zot::k_owner copy = zot::make_k();
  zot_priv_k_cpy(k.get(), copy.get());
  EXPECT_STREQ(copy->meta.cluster_id, "");
  EXPECT_STREQ(copy->meta.config_id, "");
  EXPECT_STREQ(copy->meta.firmware_version, "");
}

TEST(CopyK, WithoutAPathCopiesTheBytes) {
  const zot::k_owner k = k_with_data("bytes");
  const zot::k_owner copy = zot::make_k();
  EXPECT_EQ(zot_priv_k_cpy(k.get(), copy.get()), ZOT_OK);
  EXPECT_EQ(copy->path, nullptr);
  EXPECT_EQ(std::string(copy->data, copy->data_len), "bytes");
}

TEST(CopyK, WithoutDataCopiesThePath) {
  const zot::k_owner k = zot::make_k();
  zot_priv_k_set_path(k.get(), "/a/path");
  const zot::k_owner copy = zot::make_k();
  EXPECT_EQ(zot_priv_k_cpy(k.get(), copy.get()), ZOT_OK);
  EXPECT_STREQ(copy->path, "/a/path");
  EXPECT_EQ(copy->data, nullptr);
  EXPECT_EQ(copy->data_len, 0U);
}

const char *first_path(const zot_k &k) {
  return cJSON_GetStringValue(cJSON_GetObjectItem(cJSON_GetArrayItem(k.gpbs, 0), "path"));
}

TEST(DuplicateK, SharesTheTreeAndItsArray) {
  const zot::k_owner k = full_k();
  const zot::k_owner copy = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  EXPECT_EQ(copy->json, k->json);
  EXPECT_EQ(copy->gpbs, k->gpbs);
}

TEST(DuplicateK, KeepsTheTreeWhenTheOriginalIsReleased) {
  zot::k_owner k = full_k();
  const zot::k_owner copy = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  k.reset();
  EXPECT_STREQ(first_path(*copy), "/Wlan/a/1");
}

TEST(DuplicateK, LeavesTheTreeToTheOriginalWhenTheCopyIsReleased) {
  const zot::k_owner k = full_k();
  zot::k_owner copy = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  copy.reset();
  EXPECT_STREQ(first_path(*k), "/Wlan/a/1");
}

TEST(DuplicateK, OfACopyOutlivesBoth) {
  zot::k_owner k = full_k();
  zot::k_owner copy = zot::make_k();
  const zot::k_owner last = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  ASSERT_EQ(zot::duplicate_k(copy.get(), last.get()), ZOT_OK);
  copy.reset();
  k.reset();
  EXPECT_STREQ(first_path(*last), "/Wlan/a/1");
}

TEST(DuplicateK, ReleasedByTheOperationLeavesTheTreeToTheOther) {
  model_handle handle;
  const zot::k_owner k = full_k();
  const zot::k_owner copy = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  ASSERT_EQ(zot_priv_free_k(handle.get(), k.get()), ZOT_OK);
  EXPECT_EQ(k->json, nullptr);
  EXPECT_STREQ(first_path(*copy), "/Wlan/a/1");
}

TEST(DuplicateK, CheckedAgainReplacesItsOwnTreeOnly) {
  model_handle handle;
  const zot::k_owner k = full_k();
  const cJSON *const tree = k->json;
  const zot::k_owner copy = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  std::free(copy->data);
  copy->data = ::strdup(R"({"clusterId":"c-1","gpbs":[{"path":"/Zone/b/2"}]})");
  ASSERT_EQ(zot_priv_chk_vail_k_cont(handle.get(), copy.get()), ZOT_OK);
  EXPECT_STREQ(first_path(*copy), "/Zone/b/2");
  EXPECT_EQ(k->json, tree);
  EXPECT_STREQ(first_path(*k), "/Wlan/a/1");
}

TEST(DuplicateK, CopiesMetadataAndFilePart) {
  const zot::k_owner k = full_k();
  const zot::k_owner copy = zot::make_k();
  zot::duplicate_k(k.get(), copy.get());
  EXPECT_EQ(std::memcmp(&copy->meta, &k->meta, sizeof k->meta), 0);
  EXPECT_STREQ(copy->checksum, k->checksum);
  EXPECT_EQ(zot_priv_cmp_k(copy.get(), k.get()), 0);
}

TEST(DuplicateK, WithoutATreeHasNone) {
  const zot::k_owner k = k_of_cluster("c-2");
  const zot::k_owner copy = zot::make_k();
  EXPECT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  EXPECT_EQ(copy->json, nullptr);
  EXPECT_STREQ(copy->meta.cluster_id, "c-2");
}

TEST(DuplicateK, ReplacesTheTreeThatTheCopyHad) {
  const zot::k_owner first = full_k();
  const zot::k_owner copy = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(first.get(), copy.get()), ZOT_OK);
  ASSERT_EQ(first->parsed->owners, 2U);
  std::free(std::exchange(copy->data, nullptr));
  const zot::k_owner bare = k_of_cluster("c-2");
  ASSERT_EQ(zot::duplicate_k(bare.get(), copy.get()), ZOT_OK);
  EXPECT_EQ(first->parsed->owners, 1U);
  EXPECT_EQ(copy->json, nullptr);
}

TEST(DuplicateK, OntoItselfIsRefused) {
  const zot::k_owner k = full_k();
  EXPECT_EQ(zot::duplicate_k(k.get(), k.get()), ZOT_ERR_WRONG_INPUT);
}

// A tree that a client put into a record belongs to that record alone, whatever it is.
class OwnTree : public testing::TestWithParam<const char *> {};

TEST_P(OwnTree, IsCopiedWithItsRecord) {
  zot::k_owner k = k_with_data(GetParam());
  k->json = cJSON_Parse(GetParam());
  const zot::k_owner copy = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  EXPECT_NE(copy->json, k->json);
  k.reset();
  const zot::c_text text(cJSON_PrintUnformatted(copy->json));
  EXPECT_STREQ(text.get(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(EveryType, OwnTree,
                         testing::Values("[1,2]", "7", "-7", "true", "null", R"("text")",
                                         R"({"gpbs":[]})"));

TEST(DuplicateK, OfATreeOfItsOwnPointsIntoTheCopy) {
  const zot::k_owner k = zot::make_k();
  k->json = cJSON_Parse(R"({"gpbs":[{"path":"/Wlan/a/1"}]})");
  k->gpbs = cJSON_GetObjectItem(k->json, "gpbs");
  const zot::k_owner copy = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  EXPECT_EQ(copy->gpbs, cJSON_GetObjectItem(copy->json, "gpbs"));
  EXPECT_STREQ(first_path(*copy), "/Wlan/a/1");
}

// The leak checker verifies that both trees are freed.
TEST(FreeK, TreeThatTookThePlaceOfASharedOneIsFreedBesideIt) {
  model_handle handle;
  const zot::k_owner k = full_k();
  const zot::k_owner copy = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), copy.get()), ZOT_OK);
  copy->json = cJSON_Parse("[1]");
  EXPECT_EQ(zot_priv_free_k(handle.get(), copy.get()), ZOT_OK);
  EXPECT_EQ(copy->json, nullptr);
  EXPECT_STREQ(first_path(*k), "/Wlan/a/1");
}

TEST(FreeK, CopyOfASharedTreeIsTheClientsOwn) {
  zot::k_owner k = full_k();
  const zot::k_owner other = zot::make_k();
  ASSERT_EQ(zot::duplicate_k(k.get(), other.get()), ZOT_OK);
  const zot::json_tree copy(cJSON_Duplicate(k->json, 1));
  EXPECT_EQ(cJSON_Compare(copy.get(), other->json, 1), 1);
}

TEST(CompareK, MissingRecordHasNoOrder) {
  const zot::k_owner k = full_k();
  EXPECT_EQ(zot_priv_cmp_k(nullptr, k.get()), -1);
  EXPECT_EQ(zot_priv_cmp_k(k.get(), nullptr), -1);
  EXPECT_EQ(zot_priv_cmp_k(nullptr, nullptr), -1);
}

TEST(CompareK, SameBytesAreEqualWhateverTheChecksum) {
  const zot::k_owner k = k_with_data("bytes");
  const zot::k_owner other = k_with_data("bytes");
  set_text(k->checksum, std::string(64, 'a').c_str());
  EXPECT_EQ(zot_priv_cmp_k(k.get(), other.get()), 0);
}

TEST(CompareK, OtherBytesOfOneLengthDiffer) {
  EXPECT_EQ(zot_priv_cmp_k(k_with_data("bytes").get(), k_with_data("bytez").get()), 1);
  EXPECT_EQ(zot_priv_cmp_k(k_with_data("bytez").get(), k_with_data("bytes").get()), 1);
}

TEST(CompareK, OtherLengthDiffers) {
  EXPECT_EQ(zot_priv_cmp_k(k_with_data("bytes").get(), k_with_data("byte").get()), 1);
  EXPECT_EQ(zot_priv_cmp_k(k_with_data("byte").get(), k_with_data("bytes").get()), 1);
}

TEST(CompareK, TwoRecordsWithoutDataAreEqual) {
  EXPECT_EQ(zot_priv_cmp_k(zot::make_k().get(), zot::make_k().get()), 0);
}

}  // namespace
