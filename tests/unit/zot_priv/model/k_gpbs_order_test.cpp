// SPDX-License-Identifier: Apache-2.0
// The order of the GPB list of a K, and the versions of one object that it must not contain.
// Compared with a list whose records are created one by one and sorted like any list.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/zot_priv/model/k_gpbs_records.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;

struct listed_object {
  std::string path;
  // Distinguishes entries that the order treats as equal.
  std::string checksum;
};

int compare_nodes(void * /*priv*/, zot_list *a, zot_list *b) {
  return zot_priv_cmp_gpb(&zot::gpb_of(a), &zot::gpb_of(b), nullptr);
}

// Records of the same objects, created in document order and then sorted.
zot::gpb_list_owner sorted_records(zot_ctx *handle, const std::vector<listed_object> &objects) {
  zot::gpb_list_owner gpbs = zot::make_gpb_list(handle);
  for (const listed_object &object : objects) {
    std::array<char, ZOT_KEY_LEN + 1> key{};
    std::array<char, 64> name{};
    int32_t category = 0;
    uint64_t version = 0;
    if (get_gpb_meta_by_path(object.path.c_str(), &category, key.data(), key.size(), &version,
                             name.data(), name.size()) != 0) {
      throw std::runtime_error(object.path);
    }
    zot_gpb *const gpb = zot_priv_gpb_new(object.path.c_str(), 3, category, object.checksum.c_str(),
                                          key.data(), version);
    list_add_tail(gpbs.get(), &gpb->node);
  }
  zot_list_sort(nullptr, gpbs.get(), compare_nodes);
  return gpbs;
}

// "path checksum" of each entry, in order.
lines contents_of(const zot_list *gpbs) {
  lines contents;
  for (const zot_gpb &gpb : zot::gpb_range(gpbs)) {
    contents.push_back(std::string(gpb.path) + " " + gpb.checksum);
  }
  return contents;
}

lines elements_of(const std::vector<listed_object> &objects) {
  lines elements;
  for (const listed_object &object : objects) {
    elements.push_back(element(object.path, "3", "\"" + object.checksum + "\""));
  }
  return elements;
}

// Generates the same lists each time.
class random_lists {
 public:
  size_t below(size_t end) { return static_cast<size_t>(engine_()) % end; }
  const std::string &one_of(const lines &choices) { return choices[below(choices.size())]; }

  // Keys with the same beginning, keys that are prefixes of others, and keys that are equal after
  // truncation.
  std::string key() {
    std::string text = one_of(stems_);
    for (size_t more = below(11) + (text.empty() ? 1 : 0); more > 0; --more) {
      text += one_of(endings_);
    }
    return text;
  }

  // Versions depend on the object, or are arbitrary.
  std::vector<listed_object> list(bool has_any_version) {
    stems_ = {one_of(all_stems_), one_of(all_stems_)};
    endings_ = {one_of(all_endings_), one_of(all_endings_)};
    std::vector<listed_object> objects(below(150));
    for (listed_object &object : objects) {
      const std::string category = one_of(categories_);
      const std::string made = key();
      const size_t version =
          has_any_version ? below(2) : std::hash<std::string>()(made.substr(0, 52)) % 8;
      object = {"/" + category + "/" + made + "/" + one_of(spellings_) + std::to_string(version),
                std::to_string(&object - objects.data())};
    }
    return objects;
  }

 private:
  const lines categories_ = {"AccessList", "Ap", "Wlan", "WlanGroup", "Zone", "OrbCert"};
  const lines all_stems_ = {"",
                            "a",
                            "site-0000-building-000",
                            "site-0000-building-001",
                            std::string(45, 'k'),
                            std::string(50, 'k'),
                            std::string(60, 'k')};
  const lines all_endings_ = {"a",       "b", "0", "-", "!", "~", "\xc3\xa9", "\xf0\x9f\x98\x80",
                              "aaaaaaaa"};
  // One number in several spellings, so that equal entries have different paths.
  const lines spellings_ = {"", "0", "00", "0x"};
  lines stems_;
  lines endings_;
  std::mt19937 engine_{20240611};
};

TEST(OrderOfGpbList, IsThatOfTheSortedRecordsWithEqualOnesAsInTheDocument) {
  random_lists random;
  size_t entries = 0;
  for (int round = 0; round < 300; ++round) {
    const std::vector<listed_object> objects = random.list(false);
    built_list test(elements_of(objects), ZOT_LOG_ERROR);
    ASSERT_EQ(test.status, ZOT_OK) << round << ": " << test.handle.error_text();
    const auto expected = sorted_records(test.handle.get(), objects);
    ASSERT_EQ(contents_of(test.gpbs.get()), contents_of(expected.get())) << round;
    entries += objects.size();
  }
  EXPECT_GT(entries, 10000U);
}

TEST(OrderOfGpbList, RecordsHoldWhatTheirPathsSay) {
  random_lists random;
  for (int round = 0; round < 50; ++round) {
    const std::vector<listed_object> objects = random.list(false);
    built_list test(elements_of(objects), ZOT_LOG_ERROR);
    const auto expected = sorted_records(test.handle.get(), objects);
    for (size_t place = 0; place < objects.size(); ++place) {
      const zot_gpb &gpb = entry_at(test.gpbs.get(), place);
      const zot_gpb &other = entry_at(expected.get(), place);
      ASSERT_EQ(zot_priv_cmp_gpb(&gpb, &other, nullptr), 0) << gpb.path;
      ASSERT_EQ(gpb.key_len, other.key_len) << gpb.path;
    }
  }
}

TEST(OrderOfGpbList, TwoVersionsOfOneObjectAreFoundAsInTheSortedRecords) {
  random_lists random;
  size_t refused = 0;
  size_t accepted = 0;
  for (int round = 0; round < 300; ++round) {
    std::vector<listed_object> objects = random.list(true);
    objects.resize(std::min<size_t>(objects.size(), 1 + random.below(12)));
    built_list test(elements_of(objects), ZOT_LOG_ERROR);
    const auto expected = sorted_records(test.handle.get(), objects);
    const int status = zot_priv_chk_dup_gpb(test.handle.get(), expected.get());
    ASSERT_EQ(test.status, status) << round;
    ASSERT_EQ(zot_list_is_empty(test.gpbs.get()), status != ZOT_OK || objects.empty()) << round;
    ++(status == ZOT_OK ? accepted : refused);
  }
  EXPECT_GT(refused, 20U);
  EXPECT_GT(accepted, 20U);
}

TEST(OrderOfGpbList, EqualEntriesKeepTheOrderOfTheDocument) {
  built_list test({element("/Wlan/b/2"), element("/Wlan/a/0x1"), element("/Wlan/a/01"),
                   element("/Wlan/a/1"), element("/Ap/z/1"), element("/Wlan/a/0x01")});
  EXPECT_EQ(test.paths(), (lines{"/Ap/z/1", "/Wlan/a/0x1", "/Wlan/a/01", "/Wlan/a/1",
                                 "/Wlan/a/0x01", "/Wlan/b/2"}));
}

TEST(OrderOfGpbList, KeysThatAreCutToTheSameKeepTheOrderOfTheDocument) {
  const std::string kept(52, 'k');
  built_list test({element("/Wlan/" + kept + "z/1"), element("/Wlan/" + kept + "/1"),
                   element("/Wlan/" + kept + "a/1")});
  EXPECT_EQ(test.paths(),
            (lines{"/Wlan/" + kept + "z/1", "/Wlan/" + kept + "/1", "/Wlan/" + kept + "a/1"}));
}

TEST(OrderOfGpbList, KeyComesBeforeTheKeysThatBeginWithIt) {
  built_list test({element("/Wlan/site-00/1"), element("/Wlan/site-0/1"),
                   element("/Wlan/site-000000000/1"), element("/Wlan/site-/1")});
  EXPECT_EQ(test.paths(), (lines{"/Wlan/site-/1", "/Wlan/site-0/1", "/Wlan/site-00/1",
                                 "/Wlan/site-000000000/1"}));
}

TEST(OrderOfGpbList, KeysThatDifferLateAreSorted) {
  const std::string start = "site-00-building-00-floor-00-";
  built_list test({element("/Wlan/" + start + "0000000b/1"), element("/Wlan/" + start + "x/1"),
                   element("/Wlan/" + start + "0000000a/1")});
  EXPECT_EQ(test.paths(), (lines{"/Wlan/" + start + "0000000a/1", "/Wlan/" + start + "0000000b/1",
                                 "/Wlan/" + start + "x/1"}));
}

TEST(OrderOfGpbList, CharactersBeyondAsciiComeLast) {
  built_list test({element("/Wlan/\xc3\xa9/1"), element("/Wlan/~/1"), element("/Wlan/a/1")});
  EXPECT_EQ(test.paths(), (lines{"/Wlan/a/1", "/Wlan/~/1", "/Wlan/\xc3\xa9/1"}));
}

// Two versions of one object at two positions in a list of 70 elements.
class RepeatedObject : public testing::TestWithParam<std::pair<size_t, size_t>> {
 protected:
  static lines objects(const std::string &last_version) {
    lines elements;
    for (size_t i = 0; i < 70; ++i) {
      elements.push_back(element("/Wlan/key-" + std::to_string(i * 37 % 70) + "/1"));
    }
    elements[GetParam().first] = element("/Wlan/key-twice/1");
    elements[GetParam().second] = element("/Wlan/key-twice/" + last_version);
    return elements;
  }
};

TEST_P(RepeatedObject, InTwoVersionsIsCorrupted) {
  built_list test(objects("2"));
  EXPECT_EQ(test.status, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(), "duplicate entry in K");
}

TEST_P(RepeatedObject, InTwoVersionsLeavesTheListEmpty) {
  built_list test(objects("0"));
  EXPECT_TRUE(zot_list_is_empty(test.gpbs.get()));
}

TEST_P(RepeatedObject, InOneVersionIsAccepted) {
  built_list test(objects("0x1"));
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(test.paths().size(), 70U);
}

INSTANTIATE_TEST_SUITE_P(Places, RepeatedObject,
                         testing::Values(std::pair(0, 1), std::pair(0, 69), std::pair(69, 0),
                                         std::pair(34, 35), std::pair(20, 50), std::pair(68, 69)),
                         [](const auto &row) {
                           return std::to_string(row.param.first) + "And" +
                                  std::to_string(row.param.second);
                         });

TEST(OrderOfGpbList, TwoVersionsBesideARepeatedOneAreCorrupted) {
  built_list test({element("/Wlan/a/2"), element("/Wlan/a/1"), element("/Wlan/a/1")});
  EXPECT_EQ(test.status, ZOT_ERR_CORRUPTED);
}

TEST(OrderOfGpbList, KeysThatAreCutToTheSameAreOneObject) {
  const std::string kept(52, 'k');
  built_list test({element("/Wlan/" + kept + "a/1"), element("/Wlan/" + kept + "b/2")});
  EXPECT_EQ(test.status, ZOT_ERR_CORRUPTED);
}

TEST(OrderOfGpbList, OneKeyInTwoCategoriesIsTwoObjects) {
  built_list test({element("/Wlan/a/1"), element("/Zone/a/2")});
  EXPECT_EQ(test.status, ZOT_OK);
}

// Counts around those at which the sort has only runs of one length.
class LengthOfGpbList : public testing::TestWithParam<size_t> {};

TEST_P(LengthOfGpbList, IsThatOfTheDocument) {
  lines elements;
  lines expected;
  for (size_t i = 0; i < GetParam(); ++i) {
    std::string number = std::to_string(i);
    number.insert(0, 6 - number.size(), '0');
    expected.push_back("/Wlan/key-" + number + "/1");
    elements.push_back(element(expected.back()));
  }
  std::ranges::reverse(elements);
  built_list test(elements, ZOT_LOG_ERROR);
  EXPECT_EQ(test.status, ZOT_OK);
  EXPECT_EQ(test.paths(), expected);
}

INSTANTIATE_TEST_SUITE_P(Counts, LengthOfGpbList,
                         testing::Values(1, 2, 15, 16, 17, 63, 64, 65, 127, 128, 129, 1000));

TEST(OrderOfGpbList, ElementRefusedAfterMoreThan64ReleasesAllOfThem) {
  lines elements;
  for (size_t i = 0; i < 100; ++i) {
    elements.push_back(element("/Wlan/key-" + std::to_string(i) + "/1"));
  }
  elements.emplace_back("7");
  built_list test(elements);
  EXPECT_EQ(test.status, ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(zot_list_is_empty(test.gpbs.get()));
  EXPECT_EQ(test.handle.log().count("free GPB file: /Wlan/key-99/1\n"), 1U);
  EXPECT_EQ(logged_by(test.handle.log(), "zot_priv_free_gpb").size(), 200U);
}

TEST(OrderOfGpbList, UnknownElementsTakeNoPlace) {
  lines elements;
  lines expected;
  for (size_t i = 100; i < 230; ++i) {
    elements.push_back(element("/Starship/s/1"));
    expected.push_back("/Wlan/key-" + std::to_string(i) + "/1");
    elements.push_back(element(expected.back()));
  }
  built_list test(elements, ZOT_LOG_ERROR);
  EXPECT_EQ(test.paths(), expected);
}

}  // namespace
