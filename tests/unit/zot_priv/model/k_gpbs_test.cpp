// SPDX-License-Identifier: Apache-2.0
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/k_gpbs_records.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;

TEST(GpbListOfK, MissingHandleIsRefused) {
  built_list test({});
  EXPECT_EQ(zot_priv_get_gpb_list_via_k_json(nullptr, test.k.get(), test.gpbs.get()),
            ZOT_ERR_NULL_INPUT);
}

TEST(GpbListOfK, MissingRecordIsRecorded) {
  built_list test({});
  EXPECT_EQ(zot_priv_get_gpb_list_via_k_json(test.handle.get(), nullptr, test.gpbs.get()),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_get_gpb_list_via_k_json]: null input");
}

TEST(GpbListOfK, MissingListIsRecorded) {
  built_list test({});
  EXPECT_EQ(zot_priv_get_gpb_list_via_k_json(test.handle.get(), test.k.get(), nullptr),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_get_gpb_list_via_k_json]: null input");
}

TEST(GpbListOfK, UncheckedKIsRefused) {
  model_handle handle;
  const zot::k_owner k = k_with_data(R"({"clusterId":"c-1","gpbs":[]})");
  const auto gpbs = zot::make_gpb_list(handle.get());
  EXPECT_EQ(zot_priv_get_gpb_list_via_k_json(handle.get(), k.get(), gpbs.get()),
            ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(handle.get()->err, ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(handle.error_text(), "[zot_priv_get_gpb_list_via_k_json]: empty JSON content");
}

TEST(GpbListOfK, KWithoutArrayIsRefused) {
  built_list test({});
  test.k->gpbs = nullptr;
  EXPECT_EQ(zot_priv_get_gpb_list_via_k_json(test.handle.get(), test.k.get(), test.gpbs.get()),
            ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_get_gpb_list_via_k_json]: empty JSON content");
}

TEST(GpbListOfK, EntryHoldsWhatTheElementSays) {
  built_list test({element("/Wlan/guest/0x10", "1234")});
  ASSERT_EQ(test.status, ZOT_OK);
  const zot_gpb &gpb = entry_at(test.gpbs.get(), 0);
  EXPECT_STREQ(gpb.path, "/Wlan/guest/0x10");
  EXPECT_EQ(gpb.category, ZOT_CAT_WLAN);
  EXPECT_STREQ(gpb.key, "guest");
  EXPECT_EQ(gpb.key_len, 5U);
  EXPECT_EQ(gpb.version, 16U);
  EXPECT_EQ(gpb.size, 1234U);
  EXPECT_EQ(gpb.checksum, digest);
  EXPECT_EQ(gpb.content, nullptr);
  EXPECT_EQ(gpb.stat, 0U);
}

TEST(GpbListOfK, KWithoutElementsGivesAnEmptyList) {
  built_list test({});
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_TRUE(zot_list_is_empty(test.gpbs.get()));
}

TEST(GpbListOfK, IsSortedByCategoryThenKeyThenVersion) {
  built_list test({element("/Zone/a/1"), element("/Wlan/b/9"), element("/Wlan/b/9"),
                   element("/WlanGroup/a/1"), element("/Ap/z/1"), element("/Wlan/a/10")});
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(test.paths(), (lines{"/Ap/z/1", "/Wlan/a/10", "/Wlan/b/9", "/Wlan/b/9",
                                 "/WlanGroup/a/1", "/Zone/a/1"}));
}

TEST(GpbListOfK, CategoriesAreSortedByValueNotByName) {
  built_list test({element("/AuthServer/a/1"), element("/Zone/a/1")});
  EXPECT_EQ(test.paths(), (lines{"/Zone/a/1", "/AuthServer/a/1"}));
}

TEST(GpbListOfK, KeyOf60CharactersIsCut) {
  const std::string key(60, 'k');
  built_list test({element("/Wlan/" + key + "/1")});
  ASSERT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(entry_at(test.gpbs.get(), 0).key, key.substr(0, 52));
  EXPECT_EQ(entry_at(test.gpbs.get(), 0).key_len, 52U);
  EXPECT_EQ(test.paths(), lines{"/Wlan/" + key + "/1"});
}

TEST(GpbListOfK, UnknownCategoryIsSkipped) {
  built_list test({element("/Wlan/a/1"), element("/Starship/a/1"), element("/Zone/a/1")});
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(test.paths(), (lines{"/Wlan/a/1", "/Zone/a/1"}));
}

TEST(GpbListOfK, UnknownCategoryIsNamedInAWarning) {
  built_list test({element("/Starship/a/1")});
  EXPECT_EQ(test.logged(), (lines{"1 8 [Warning] Unknown category = Starship or wrong path format "
                                  "= /Starship/a/1.\n",
                                  "3 16 Get GPB list from K: Done\n"}));
}

TEST(GpbListOfK, PathOfTwoComponentsIsSkipped) {
  built_list test({element("/Wlan/a"), element("/Zone/a/1")});
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(test.paths(), lines{"/Zone/a/1"});
}

TEST(GpbListOfK, PathOfTwoComponentsIsNamedInAWarning) {
  built_list test({element("/Wlan/a")});
  EXPECT_EQ(test.logged().front(),
            "1 8 [Warning] Unknown category =  or wrong path format = /Wlan/a.\n");
}

TEST(GpbListOfK, CategoryOfTheElementBeforeIsNotNamedForABadPath) {
  built_list test({element("/Starship/a/1"), element("/Wlan/a")});
  EXPECT_TRUE(
      test.handle.log().contains("[Warning] Unknown category =  or wrong path format = /Wlan/a.\n"))
      << test.handle.log().dump();
}

TEST(GpbListOfK, SkippedElementNeedsNeitherSizeNorChecksum) {
  built_list test({R"({"path":"/Starship/a/1"})", element("/Zone/a/1")});
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(test.paths(), lines{"/Zone/a/1"});
}

TEST(GpbListOfK, TwoVersionsOfOneObjectAreCorrupted) {
  built_list test({element("/Wlan/a/1"), element("/Zone/a/1"), element("/Wlan/a/2")});
  EXPECT_EQ(test.status, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(), "duplicate entry in K");
}

TEST(GpbListOfK, TwoVersionsOfOneObjectLeaveTheListEmpty) {
  built_list test({element("/Wlan/a/1"), element("/Wlan/a/2")});
  EXPECT_TRUE(zot_list_is_empty(test.gpbs.get()));
  EXPECT_EQ(test.handle.log().count("free GPB file: /Wlan/a/1\n"), 1U);
  EXPECT_EQ(test.handle.log().count("free GPB file: /Wlan/a/2\n"), 1U);
}

TEST(GpbListOfK, OneElementListedTwiceIsAccepted) {
  built_list test({element("/Wlan/a/1"), element("/Wlan/a/1")});
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(test.paths(), (lines{"/Wlan/a/1", "/Wlan/a/1"}));
}

struct refused_element {
  const char *name;
  std::string text;
  std::string error;
};

class RefusedElement : public testing::TestWithParam<refused_element> {};

TEST_P(RefusedElement, IsCorrupted) {
  built_list test({element("/Zone/a/1"), GetParam().text});
  EXPECT_EQ(test.status, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_CORRUPTED);
}

TEST_P(RefusedElement, IsExplained) {
  built_list test({element("/Zone/a/1"), GetParam().text});
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_get_gpb_list_via_k_json]: " + GetParam().error);
}

TEST_P(RefusedElement, ReleasesWhatWasBuiltBefore) {
  built_list test({element("/Zone/a/1"), GetParam().text});
  EXPECT_TRUE(zot_list_is_empty(test.gpbs.get()));
  EXPECT_EQ(test.handle.log().count("free GPB file: /Zone/a/1\n"), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Model, RefusedElement,
    testing::Values(
        refused_element{"Number", "7", "unable to get path"},
        refused_element{"Text", "\"/Wlan/a/1\"", "unable to get path"},
        refused_element{"Truth", "true", "unable to get path"},
        refused_element{"Null", "null", "unable to get path"},
        refused_element{"EmptyArray", "[]", "unable to get path"},
        refused_element{"ArrayOfTexts", R"(["path","/Wlan/a/1"])", "unable to get path"},
        refused_element{"ArrayOfAnElement", "[" + element("/Wlan/a/1") + "]", "unable to get path"},
        refused_element{"EmptyObject", "{}", "unable to get path"},
        refused_element{"NoPath", R"({"size":3,"checksum":"d"})", "unable to get path"},
        refused_element{"PathAsNumber", R"({"path":3,"size":3,"checksum":"d"})",
                        "unable to get path"},
        refused_element{"PathOf4096Characters", element("/Wlan/" + std::string(4088, 'k') + "/1"),
                        "unable to get path"},
        refused_element{"NoSize", R"({"path":"/Wlan/a/1","checksum":"d"})",
                        "unable to get size of GPB"},
        refused_element{"SizeAsText", element("/Wlan/a/1", "\"3\""), "unable to get size of GPB"},
        refused_element{"NoChecksum", R"({"path":"/Wlan/a/1","size":3})",
                        "unable to get checksum of GPB"},
        refused_element{"ChecksumAsNumber", element("/Wlan/a/1", "3", "5"),
                        "unable to get checksum of GPB"},
        refused_element{"LongerMemberNames", R"({"paths":"/Wlan/a/1","size":3,"checksum":"d"})",
                        "unable to get path"},
        refused_element{"ShorterMemberName", R"({"path":"/Wlan/a/1","siz":3,"checksum":"d"})",
                        "unable to get size of GPB"},
        refused_element{"MemberNameWithABlank", R"({"path":"/Wlan/a/1","size":3,"checksum ":"d"})",
                        "unable to get checksum of GPB"},
        refused_element{"FirstOfTwoPathsAsNumber",
                        R"({"path":3,"path":"/Wlan/a/1","size":3,"checksum":"d"})",
                        "unable to get path"},
        refused_element{"FirstOfTwoSizesAsText",
                        R"({"path":"/Wlan/a/1","size":"3","size":3,"checksum":"d"})",
                        "unable to get size of GPB"},
        refused_element{"ChecksumOf65Characters",
                        element("/Wlan/a/1", "3", "\"" + std::string(65, 'd') + "\""),
                        "unable to get checksum of GPB"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(GpbListOfK, PathOf4095CharactersIsKept) {
  const std::string path = "/Wlan/" + std::string(4087, 'k') + "/1";
  ASSERT_EQ(path.size(), 4095U);
  built_list test({element(path)});
  EXPECT_EQ(test.paths(), lines{path});
}

TEST(GpbListOfK, SizeBeyondTheRangeOfAWordSaturates) {
  built_list test({element("/Wlan/a/1", "1e12")});
  ASSERT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(entry_at(test.gpbs.get(), 0).size, 2147483647U);
}

TEST(GpbListOfK, FractionOfASizeIsCut) {
  built_list test({element("/Wlan/a/1", "12.9")});
  ASSERT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(entry_at(test.gpbs.get(), 0).size, 12U);
}

TEST(GpbListOfK, SizeJustBeyondTheRangeOfAWordSaturates) {
  built_list test({element("/Wlan/a/1", "2147483648"), element("/Wlan/b/1", "4294967297")});
  ASSERT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(entry_at(test.gpbs.get(), 0).size, 2147483647U);
  EXPECT_EQ(entry_at(test.gpbs.get(), 1).size, 2147483647U);
}

TEST(GpbListOfK, SizeBelowTheRangeOfAWordSaturates) {
  built_list test({element("/Wlan/a/1", "-1e12")});
  ASSERT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(entry_at(test.gpbs.get(), 0).size, 2147483648U);
}

TEST(GpbListOfK, ChecksumOf64CharactersIsKept) {
  const std::string checksum(64, 'e');
  built_list test({element("/Wlan/a/1", "3", "\"" + checksum + "\"")});
  ASSERT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(entry_at(test.gpbs.get(), 0).checksum, checksum);
}

TEST(GpbListOfK, EmptyChecksumIsKept) {
  built_list test({element("/Wlan/a/1", "3", "\"\"")});
  ASSERT_EQ(test.status, ZOT_OK);
  EXPECT_STREQ(entry_at(test.gpbs.get(), 0).checksum, "");
}

// What one element states, read into its entry.
struct members_case {
  const char *name;
  std::string text;
};

class MembersOfAnElement : public testing::TestWithParam<members_case> {};

TEST_P(MembersOfAnElement, ThoseThatCountAreRead) {
  built_list test({GetParam().text});
  ASSERT_EQ(test.status, ZOT_OK) << test.handle.error_text();
  const zot_gpb &gpb = entry_at(test.gpbs.get(), 0);
  EXPECT_STREQ(gpb.path, "/Wlan/a/1");
  EXPECT_EQ(gpb.size, 3U);
  EXPECT_STREQ(gpb.checksum, "d");
}

INSTANTIATE_TEST_SUITE_P(
    Model, MembersOfAnElement,
    testing::Values(
        members_case{"InTheUsualOrder", R"({"path":"/Wlan/a/1","size":3,"checksum":"d"})"},
        members_case{"InReverse", R"({"checksum":"d","size":3,"path":"/Wlan/a/1"})"},
        members_case{"InUpperCase", R"({"PATH":"/Wlan/a/1","SIZE":3,"CHECKSUM":"d"})"},
        members_case{"InMixedCase", R"({"pAtH":"/Wlan/a/1","sIzE":3,"checkSum":"d"})"},
        members_case{"FirstOfTwo", R"({"path":"/Wlan/a/1","size":3,"checksum":"d",)"
                                   R"("path":"/Zone/b/2","size":4,"checksum":"e"})"},
        members_case{"FirstOfTwoInAnotherCase", R"({"PATH":"/Wlan/a/1","Size":3,"checkSUM":"d",)"
                                                R"("path":"/Zone/b/2","size":4,"checksum":"e"})"},
        members_case{"AfterLongerNames", R"({"paths":"/Zone/b/2","sizes":4,"checksums":"e",)"
                                         R"("path":"/Wlan/a/1","size":3,"checksum":"d"})"},
        members_case{"AfterShorterNames", R"({"pat":"/Zone/b/2","siz":4,"check":"e","":"f",)"
                                          R"("path":"/Wlan/a/1","size":3,"checksum":"d"})"},
        members_case{"AfterOtherMembers",
                     R"({"comment":{"path":"/Zone/b/2","size":4},"list":["path"],)"
                     R"("path":"/Wlan/a/1","size":3,"checksum":"d"})"}),
    [](const auto &row) { return std::string(row.param.name); });

// "free GPB file: …" of each record, in order.
lines released_in(const zot::test::log_capture &log) {
  lines released;
  for (const std::string &line : logged_by(log, "zot_priv_free_gpb")) {
    if (line.find("free GPB file: ") != std::string::npos) {
      released.push_back(line);
    }
  }
  return released;
}

TEST(GpbListOfK, EntriesBeforeARefusedElementAreReleasedInTheOrderOfTheDocument) {
  built_list test({element("/Zone/z/1"), element("/Wlan/b/1"), element("/Starship/s/1"),
                   element("/Ap/a/1"), element("/Wlan/a/1", "\"3\""), element("/Wlan/c/1")});
  EXPECT_EQ(released_in(test.handle.log()),
            (lines{"3 128 free GPB file: /Zone/z/1\n", "3 128 free GPB file: /Wlan/b/1\n",
                   "3 128 free GPB file: /Ap/a/1\n"}));
}

TEST(GpbListOfK, RefusedElementIsRecordedBeforeTheRelease) {
  built_list test({element("/Zone/z/1"), "7"});
  const auto &log = test.handle.log();
  const auto recorded = log.index_of("[zot_priv_get_gpb_list_via_k_json]: unable to get path\n");
  const auto released = log.index_of("free GPB file: /Zone/z/1\n");
  ASSERT_TRUE(recorded.has_value()) << log.dump();
  ASSERT_TRUE(released.has_value()) << log.dump();
  EXPECT_LT(*recorded, *released);
}

TEST(GpbListOfK, ListIsReleasedAfterItsEntries) {
  built_list test({element("/Zone/z/1"), element("/Wlan/b/1"), "7"});
  EXPECT_EQ(logged_by(test.handle.log(), "zot_priv_free_gpb_list"),
            lines{"3 64 free GPB list " + address_text(test.gpbs.get()) + ": Done\n"});
  EXPECT_EQ(test.handle.log().lines().back().func, "zot_priv_free_gpb_list");
}

TEST(GpbListOfK, RefusedFirstElementReleasesNothing) {
  built_list test({"7", element("/Zone/z/1")});
  EXPECT_EQ(test.status, ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(released_in(test.handle.log()).empty()) << test.handle.log().dump();
  EXPECT_TRUE(logged_by(test.handle.log(), "zot_priv_free_gpb_list").empty());
}

TEST(GpbListOfK, WarningsComeInTheOrderOfTheDocument) {
  built_list test({element("/Starship/b/1"), element("/Wlan/a/1"), element("/Starship/a/1")});
  EXPECT_EQ(
      test.logged(),
      (lines{"1 8 [Warning] Unknown category = Starship or wrong path format = /Starship/b/1.\n",
             "1 8 [Warning] Unknown category = Starship or wrong path format = /Starship/a/1.\n",
             "3 16 Get GPB list from K: Done\n"}));
}

TEST(GpbListOfK, CategoryThatOnlyBeginsLikeAKnownOneIsSkipped) {
  built_list test({element("/Wla/a/1"), element("/Wlans/a/1"), element("/wlan/a/1"),
                   element("/WLAN/a/1"), element("/Wlan/a/1")});
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(test.paths(), lines{"/Wlan/a/1"});
}

TEST(GpbListOfK, EntryThatIsMadeOfALongKeyIsTerminated) {
  const std::string key(60, 'k');
  built_list test({element("/Wlan/" + key + "/1"), element("/Wlan/" + key + "/1")});
  ASSERT_EQ(test.status, ZOT_OK);
  EXPECT_STREQ(entry_at(test.gpbs.get(), 1).key, key.substr(0, 52).c_str());
}

TEST(GpbListOfK, SuccessIsLogged) {
  built_list test({element("/Wlan/a/1")});
  EXPECT_EQ(test.logged(), lines{"3 16 Get GPB list from K: Done\n"});
}

TEST(GpbListOfK, SuccessClearsTheCodeAlone) {
  built_list test({});
  mark_status(test.handle.get());
  zot_priv_get_gpb_list_via_k_json(test.handle.get(), test.k.get(), test.gpbs.get());
  EXPECT_EQ(test.handle.get()->err, ZOT_OK);
  EXPECT_EQ(test.handle.error_text(), "an earlier text");
}

TEST(GpbListOfK, FailureIsLogged) {
  built_list test({R"({"path":"/Wlan/a/1"})"});
  EXPECT_EQ(test.logged(),
            lines{"0 1 [zot_priv_get_gpb_list_via_k_json]: unable to get size of GPB\n"});
}

// A K with many elements in scrambled order. The version of an element is its number.
class large_k {
 public:
  static constexpr size_t count = 100000;

  static std::string text() {
    std::string text = R"({"clusterId":"c-1","gpbs":[)";
    std::array<char, 256> one{};
    for (size_t i = 0; i < count; ++i) {
      // The factor and the count have no common divisor, so every number occurs once.
      std::snprintf(one.data(), one.size(), R"(%s{"path":"%s","size":3,"checksum":"%s"})",
                    i == 0 ? "" : ",", path(i * 7919 % count).data(), digest.c_str());
      text += one.data();
    }
    return text + "]}";
  }

  static std::array<char, 64> path(size_t number) {
    std::array<char, 64> text{};
    const auto category = static_cast<int32_t>(number % ZOT_CAT_COUNT);
    std::snprintf(text.data(), text.size(), "/%s/key-%zu/%zu", get_cat_str_by_gpb_cat(category),
                  number / ZOT_CAT_COUNT, number);
    return text;
  }
};

bool is_before(const zot_gpb &a, const zot_gpb &b) {
  const int keys = std::strcmp(a.key, b.key);
  return a.category != b.category ? a.category < b.category
                                  : (keys != 0 ? keys < 0 : a.version < b.version);
}

TEST(GpbListOfK, OfAHundredThousandElementsIsCompleteAndSorted) {
  model_handle handle;
  handle.ctl().level = ZOT_LOG_ERROR;
  const zot::k_owner k = k_with_data(large_k::text());
  const auto gpbs = zot::make_gpb_list(handle.get());
  ASSERT_EQ(zot_priv_chk_vail_k_cont(handle.get(), k.get()), ZOT_OK);
  ASSERT_EQ(zot_priv_get_gpb_list_via_k_json(handle.get(), k.get(), gpbs.get()), ZOT_OK);

  std::vector<bool> found(large_k::count);
  size_t misplaced = 0;
  size_t foreign = 0;
  const zot_gpb *before = nullptr;
  for (const zot_gpb &gpb : zot::gpb_range(gpbs.get())) {
    const bool is_first = before == nullptr;
    const bool is_linked = gpb.node.prev == (is_first ? gpbs.get() : &before->node);
    misplaced += is_linked && (is_first || is_before(*before, gpb)) ? 0 : 1;
    const auto number = static_cast<size_t>(gpb.version);
    if (number < found.size() && std::strcmp(gpb.path, large_k::path(number).data()) == 0) {
      found[number] = true;
    } else {
      ++foreign;
    }
    before = &gpb;
  }
  EXPECT_EQ(misplaced, 0U);
  EXPECT_EQ(foreign, 0U);
  EXPECT_EQ(std::ranges::count(found, true), static_cast<std::ptrdiff_t>(large_k::count));
}

}  // namespace
