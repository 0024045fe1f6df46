// SPDX-License-Identifier: Apache-2.0
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"
#include "zot_priv/model/k_content.hpp"
#include "zot_priv/model/parsed_k.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;

// A K with the given text, checked.
struct checked_k {
  explicit checked_k(const std::string &text)
      : k(k_with_data(text)), status(zot_priv_chk_vail_k_cont(handle.get(), k.get())) {}
  // A K whose checksum was verified before.
  checked_k(const std::string &text, const std::string &checksum)
      : k(k_with_data(text)),
        status(zot::check_k_content(handle.get(), k.get(), checksum.c_str(), nullptr)) {}

  lines logged() { return logged_by(handle.log(), "zot_priv_chk_vail_k_cont"); }

  model_handle handle;
  zot::k_owner k;
  int status;
};

constexpr char smallest[] = R"({"clusterId":"c-1","gpbs":[]})";
constexpr char complete[] =
    R"({"clusterId":"c-1","firmwareVersion":"1.2.3","configId":"conf-7","gpbs":[]})";

std::string with_member(const std::string &name, const std::string &value) {
  return R"({"clusterId":"c-1",")" + name + "\":" + value + R"(,"gpbs":[]})";
}

std::string quoted(const std::string &text) {
  return "\"" + text + "\"";
}

TEST(KContent, MissingHandleOrRecordIsRefusedWithoutRecording) {
  model_handle handle;
  mark_status(handle.get());
  const zot::k_owner k = k_with_data(smallest);
  EXPECT_EQ(zot_priv_chk_vail_k_cont(nullptr, k.get()), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_chk_vail_k_cont(handle.get(), nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(has_marked_status(handle.get()));
}

TEST(KContent, EmptyTextIsRefused) {
  checked_k test("");
  EXPECT_EQ(test.status, ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_chk_vail_k_cont]: json is empty.");
}

TEST(KContent, MissingTextIsRefused) {
  model_handle handle;
  const zot::k_owner k = zot::make_k();
  EXPECT_EQ(zot_priv_chk_vail_k_cont(handle.get(), k.get()), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(handle.error_text(), "[zot_priv_chk_vail_k_cont]: json is empty.");
}

struct refused_text {
  const char *name;
  std::string text;
  std::string error;
};

class RefusedKContent : public testing::TestWithParam<refused_text> {};

TEST_P(RefusedKContent, IsCorrupted) {
  checked_k test(GetParam().text);
  EXPECT_EQ(test.status, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_CORRUPTED);
}

TEST_P(RefusedKContent, IsExplained) {
  checked_k test(GetParam().text);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_chk_vail_k_cont]: " + GetParam().error);
}

TEST_P(RefusedKContent, LeavesTreeAndClusterUntouched) {
  model_handle handle;
  const zot::k_owner k = k_with_data(GetParam().text);
  std::snprintf(k->meta.cluster_id, sizeof k->meta.cluster_id, "%s", "former");
  zot_priv_chk_vail_k_cont(handle.get(), k.get());
  EXPECT_EQ(k->json, nullptr);
  EXPECT_EQ(k->gpbs, nullptr);
  EXPECT_STREQ(k->meta.cluster_id, "former");
}

INSTANTIATE_TEST_SUITE_P(
    Model, RefusedKContent,
    testing::Values(
        refused_text{"NoJson", "no json", "unable to parse json str"},
        refused_text{"CutOff", R"({"clusterId":"c-1","gpbs":[)", "unable to parse json str"},
        refused_text{"NoObject", "[]", "wrong gpbs format."},
        refused_text{"NumberAlone", "7", "wrong gpbs format."},
        refused_text{"NegativeNumberAlone", "-7", "wrong gpbs format."},
        refused_text{"TruthAlone", "true", "wrong gpbs format."},
        refused_text{"NoGpbs", R"({"clusterId":"c-1"})", "wrong gpbs format."},
        refused_text{"GpbsAsObject", R"({"clusterId":"c-1","gpbs":{}})", "wrong gpbs format."},
        refused_text{"GpbsAsText", R"({"clusterId":"c-1","gpbs":"[]"})", "wrong gpbs format."},
        refused_text{"GpbsAsNull", R"({"clusterId":"c-1","gpbs":null})", "wrong gpbs format."},
        refused_text{"NoCluster", R"({"gpbs":[]})", "No clusterId"},
        refused_text{"ClusterAsNumber", R"({"clusterId":1,"gpbs":[]})", "No clusterId"},
        refused_text{"ClusterOf37Characters",
                     R"({"clusterId":")" + std::string(37, 'c') + R"(","gpbs":[]})",
                     "No clusterId"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(KContent, ClusterOf36CharactersIsKept) {
  const std::string cluster(36, 'c');
  checked_k test(R"({"clusterId":")" + cluster + R"(","gpbs":[]})");
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(test.k->meta.cluster_id, cluster);
}

TEST(KContent, WithoutFirmwareAndConfigIdIsValid) {
  checked_k test(smallest);
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_STREQ(test.k->meta.firmware_version, "");
  EXPECT_STREQ(test.k->meta.config_id, "");
}

TEST(KContent, MetadataIsStored) {
  checked_k test(complete);
  EXPECT_STREQ(test.k->meta.cluster_id, "c-1");
  EXPECT_STREQ(test.k->meta.firmware_version, "1.2.3");
  EXPECT_STREQ(test.k->meta.config_id, "conf-7");
}

TEST(KContent, TreeAndArrayAreStored) {
  checked_k test(R"({"clusterId":"c-1","gpbs":[1,2,3]})");
  ASSERT_NE(test.k->json, nullptr);
  EXPECT_EQ(test.k->gpbs, cJSON_GetObjectItem(test.k->json, "gpbs"));
  EXPECT_EQ(cJSON_GetArraySize(test.k->gpbs), 3);
}

TEST(KContent, LetterCaseOfMemberNamesDoesNotCount) {
  checked_k test(R"({"CLUSTERID":"c-1","FirmwareVersion":"1","configid":"u","Gpbs":[]})");
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_STREQ(test.k->meta.cluster_id, "c-1");
  EXPECT_STREQ(test.k->meta.firmware_version, "1");
  EXPECT_STREQ(test.k->meta.config_id, "u");
}

TEST(KContent, OtherMembersAreIgnored) {
  checked_k test(with_member("comment", R"({"gpbs":7})"));
  EXPECT_EQ(test.status, ZOT_OK);
}

TEST(KContent, FirmwareOf511CharactersIsStored) {
  const std::string firmware(511, 'f');
  checked_k test(with_member("firmwareVersion", quoted(firmware)));
  EXPECT_EQ(test.k->meta.firmware_version, firmware);
}

TEST(KContent, FirmwareOf512CharactersCountsAsAbsent) {
  checked_k test(with_member("firmwareVersion", quoted(std::string(512, 'f'))));
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_STREQ(test.k->meta.firmware_version, "");
  EXPECT_TRUE(test.handle.log().contains("No firmwareVersion in K.\n"));
}

TEST(KContent, ConfigIdOf36CharactersIsStored) {
  const std::string config_id(36, 'u');
  checked_k test(with_member("configId", quoted(config_id)));
  EXPECT_EQ(test.k->meta.config_id, config_id);
}

TEST(KContent, ConfigIdOf37CharactersCountsAsAbsent) {
  checked_k test(with_member("configId", quoted(std::string(37, 'u'))));
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_STREQ(test.k->meta.config_id, "");
  EXPECT_TRUE(test.handle.log().contains("No configId in K.\n"));
}

TEST(KContent, AbsentMetadataKeepsTheFormerText) {
  model_handle handle;
  const zot::k_owner k = k_with_data(smallest);
  std::snprintf(k->meta.firmware_version, sizeof k->meta.firmware_version, "%s", "former fw");
  std::snprintf(k->meta.config_id, sizeof k->meta.config_id, "%s", "former id");
  EXPECT_EQ(zot_priv_chk_vail_k_cont(handle.get(), k.get()), ZOT_OK);
  EXPECT_STREQ(k->meta.firmware_version, "former fw");
  EXPECT_STREQ(k->meta.config_id, "former id");
}

// Whether the field holds the text and zeros up to its end.
template <std::size_t Size>
testing::AssertionResult holds_nothing_but(const char (&field)[Size], const std::string &text) {
  std::string whole = text;
  whole.resize(Size, '\0');
  return std::string(field, Size) == whole
             ? testing::AssertionSuccess()
             : testing::AssertionFailure() << "it begins with " << field;
}

// Callers receive the metadata as it lies in memory.
TEST(KContent, NothingStandsBehindTheTexts) {
  model_handle handle;
  const zot::k_owner k = k_with_data(complete);
  std::memset(&k->meta, 'x', sizeof k->meta);
  EXPECT_EQ(zot_priv_chk_vail_k_cont(handle.get(), k.get()), ZOT_OK);
  EXPECT_TRUE(holds_nothing_but(k->meta.cluster_id, "c-1"));
  EXPECT_TRUE(holds_nothing_but(k->meta.firmware_version, "1.2.3"));
  EXPECT_TRUE(holds_nothing_but(k->meta.config_id, "conf-7"));
}

TEST(KContent, EveryStepOfACompleteKIsLogged) {
  checked_k test(complete);
  EXPECT_EQ(test.logged(),
            (lines{"3 8 Content of K=\"" + std::string(complete) + "\"\n",
                   "2 8 Get new K: cluster ID: \"c-1\"\n", "2 8 fw version of new K: \"1.2.3\"\n",
                   "2 8 conf UUID of new K: \"conf-7\"\n", "2 8 JSON format of K is valid.\n"}));
}

TEST(KContent, AbsentMetadataIsLoggedForDebugging) {
  checked_k test(smallest);
  EXPECT_EQ(test.logged(),
            (lines{"3 8 Content of K=\"" + std::string(smallest) + "\"\n",
                   "2 8 Get new K: cluster ID: \"c-1\"\n", "3 8 No firmwareVersion in K.\n",
                   "3 8 No configId in K.\n", "2 8 JSON format of K is valid.\n"}));
}

TEST(KContent, TextIsLoggedBeforeItIsRefused) {
  checked_k test("no json");
  EXPECT_EQ(test.logged(), (lines{"3 8 Content of K=\"no json\"\n",
                                  "0 1 [zot_priv_chk_vail_k_cont]: unable to parse json str\n"}));
}

TEST(KContent, SuccessClearsTheCodeAlone) {
  model_handle handle;
  mark_status(handle.get());
  const zot::k_owner k = k_with_data(smallest);
  EXPECT_EQ(zot_priv_chk_vail_k_cont(handle.get(), k.get()), ZOT_OK);
  EXPECT_EQ(handle.get()->err, ZOT_OK);
  EXPECT_EQ(handle.error_text(), "an earlier text");
}

TEST(KContent, SecondCheckReplacesTheTree) {
  checked_k test(smallest);
  EXPECT_EQ(zot_priv_chk_vail_k_cont(test.handle.get(), test.k.get()), ZOT_OK);
  EXPECT_EQ(test.k->gpbs, cJSON_GetObjectItem(test.k->json, "gpbs"));
}

// A K with the text of another one that was checked before.
struct known_text {
  explicit known_text(const std::string &text = complete) : k(k_with_data(text)) {}
  int run(zot_parsed_k *from) {
    return zot::check_k_content(handle.get(), k.get(), zot::test::sha256_hex(k->data).c_str(),
                                from);
  }
  int run() { return run(known.k->parsed); }

  checked_k known{complete, zot::test::sha256_hex(complete)};
  model_handle handle;
  zot::k_owner k;
};

TEST(KnownKContent, OfTheSameTextSharesItsTree) {
  known_text test;
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_EQ(test.k->json, test.known.k->json);
  EXPECT_EQ(test.k->gpbs, test.known.k->gpbs);
}

TEST(KnownKContent, MetadataIsStored) {
  known_text test;
  test.run();
  EXPECT_STREQ(test.k->meta.cluster_id, "c-1");
  EXPECT_STREQ(test.k->meta.firmware_version, "1.2.3");
  EXPECT_STREQ(test.k->meta.config_id, "conf-7");
}

TEST(KnownKContent, EveryStepIsLoggedAsForAnUnknownOne) {
  known_text test;
  test.run();
  EXPECT_EQ(logged_by(test.handle.log(), "zot_priv_chk_vail_k_cont"), test.known.logged());
  EXPECT_EQ(test.handle.log().lines().size(), 5U) << test.handle.log().dump();
}

TEST(KnownKContent, SuccessClearsTheCodeAlone) {
  known_text test;
  mark_status(test.handle.get());
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_EQ(test.handle.get()->err, ZOT_OK);
  EXPECT_EQ(test.handle.error_text(), "an earlier text");
}

TEST(KnownKContent, SharedTreeReplacesTheFormerOne) {
  known_text test;
  ASSERT_EQ(test.run(nullptr), ZOT_OK);
  ASSERT_NE(test.k->json, test.known.k->json);
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_EQ(test.k->json, test.known.k->json);
}

TEST(KnownKContent, MayBeTheRecordItself) {
  known_text test;
  ASSERT_EQ(test.run(nullptr), ZOT_OK);
  EXPECT_EQ(test.run(test.k->parsed), ZOT_OK);
  EXPECT_EQ(test.k->gpbs, cJSON_GetObjectItem(test.k->json, "gpbs"));
}

TEST(KnownKContent, TreeOutlivesTheKnownRecord) {
  known_text test;
  ASSERT_EQ(test.run(), ZOT_OK);
  test.known.k.reset();
  EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(test.k->json, "configId")), "conf-7");
}

TEST(KnownKContent, OfAnotherTextIsNotTaken) {
  std::string other = complete;
  other.replace(other.find("c-1"), 3, "c-2");
  known_text test(other);
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_NE(test.k->json, test.known.k->json);
  EXPECT_STREQ(test.k->meta.cluster_id, "c-2");
}

TEST(KnownKContent, ThatTheTextOnlyBeginsWithIsNotTaken) {
  known_text test(std::string(complete) + " ");
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_NE(test.k->json, test.known.k->json);
}

TEST(KnownKContent, DoesNotExcuseATextThatIsNoJson) {
  known_text test("no json");
  EXPECT_EQ(test.run(), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_chk_vail_k_cont]: unable to parse json str");
  EXPECT_EQ(test.k->json, nullptr);
}

TEST(KnownKContent, WhoseChecksumNobodyToldIsNotTaken) {
  known_text test;
  const zot::parsed_k untold = zot::parse_k(complete, nullptr);
  EXPECT_EQ(test.run(untold.get()), ZOT_OK);
  EXPECT_NE(test.k->json, untold->tree);
}

TEST(KnownKContent, IsNotTakenForATextWithoutAChecksum) {
  known_text test;
  EXPECT_EQ(zot::check_k_content(test.handle.get(), test.k.get(), nullptr, test.known.k->parsed),
            ZOT_OK);
  EXPECT_NE(test.k->json, test.known.k->json);
}

// The text of a record may be replaced after it was parsed.
TEST(KnownKContent, OfARecordWhoseTextWasReplacedIsNotTaken) {
  std::string other = complete;
  other.replace(other.find("c-1"), 3, "c-2");
  known_text test(other);
  std::memcpy(test.known.k->data, other.c_str(), other.size());
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_NE(test.k->json, test.known.k->json);
  EXPECT_STREQ(test.k->meta.cluster_id, "c-2");
}

TEST(KnownKContent, MissingHandleOrRecordIsRefused) {
  known_text test;
  EXPECT_EQ(zot::check_k_content(nullptr, test.k.get(), nullptr, test.known.k->parsed),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot::check_k_content(test.handle.get(), nullptr, nullptr, test.known.k->parsed),
            ZOT_ERR_NULL_INPUT);
}

}  // namespace
