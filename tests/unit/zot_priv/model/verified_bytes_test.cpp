// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/model/verified_bytes.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"

namespace {

using namespace zot::test::model;

using zot::test::sha256_hex;

const std::string bytes = "the bytes of a file";

// An entry, and verified bytes that match what it states.
struct stated_entry {
  model_handle handle;
  zot::gpb_list_owner gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1, 0, bytes}});
  zot_gpb &gpb = entry_at(gpbs.get(), 0);
  zot::verified_bytes verified = verified_as(bytes, sha256_hex(bytes));

  void keep() { zot::keep_content(gpb, zot::share(verified.get())); }
};

TEST(VerifiedBytes, AreAlignedAsMemoryOfTheAllocator) {
  const zot::verified_bytes made = verified_as(bytes, sha256_hex(bytes));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(zot::bytes_of(made.get())) % alignof(std::max_align_t), 0U);
}

TEST(VerifiedBytes, LiveUntilTheirLastOwnerIsGone) {
  stated_entry test;
  test.keep();
  test.verified.reset();
  EXPECT_EQ(std::string(test.gpb.content, test.gpb.size), bytes);
  EXPECT_EQ(test.gpb.verified->owners, 1U);
}

TEST(VerifiedBytes, OfNobodyHaveNoOwner) {
  EXPECT_EQ(zot::share(nullptr), nullptr);
  zot::release_verified(nullptr);
}

TEST(VerifiedOf, EntryThatKeepsThemIsThem) {
  stated_entry test;
  test.keep();
  EXPECT_EQ(zot::verified_of(test.gpb), test.verified.get());
}

TEST(VerifiedOf, EntryWithoutContentIsNothing) {
  const stated_entry test;
  EXPECT_EQ(zot::verified_of(test.gpb), nullptr);
}

TEST(VerifiedOf, BufferOfSomebodyElseIsNothing) {
  stated_entry test;
  test.gpb.content = ::strdup(bytes.c_str());
  EXPECT_EQ(zot::verified_of(test.gpb), nullptr);
}

TEST(VerifiedOf, EntryWhoseContentWasReplacedIsNothing) {
  stated_entry test;
  test.keep();
  test.gpb.content = ::strdup(bytes.c_str());
  EXPECT_EQ(zot::verified_of(test.gpb), nullptr);
}

TEST(VerifiedOf, EntryThatStatesAnotherChecksumIsNothing) {
  stated_entry test;
  test.keep();
  state_checksum(test.gpb, sha256_hex("other"));
  EXPECT_EQ(zot::verified_of(test.gpb), nullptr);
}

TEST(VerifiedOf, EntryThatStatesAnotherSizeIsNothing) {
  stated_entry test;
  test.keep();
  ++test.gpb.size;
  EXPECT_EQ(zot::verified_of(test.gpb), nullptr);
}

TEST(DropContent, GivesVerifiedBytesBack) {
  stated_entry test;
  test.keep();
  zot::drop_content(test.gpb);
  EXPECT_EQ(test.gpb.content, nullptr);
  EXPECT_EQ(test.gpb.verified, nullptr);
  EXPECT_EQ(test.verified->owners, 1U);
}

TEST(DropContent, OfAnEntryWhoseSizeBecameZeroGivesThemBackToo) {
  stated_entry test;
  test.keep();
  test.gpb.size = 0;
  zot::drop_content(test.gpb);
  EXPECT_EQ(test.verified->owners, 1U);
}

// The leak checker verifies that the two buffers are freed.
TEST(DropContent, FreesWhatTookTheirPlaceAsWell) {
  stated_entry test;
  test.keep();
  test.gpb.content = ::strdup("what took their place");
  zot::drop_content(test.gpb);
  EXPECT_EQ(test.gpb.content, nullptr);
  EXPECT_EQ(test.verified->owners, 1U);
}

TEST(KeepContent, FreesTheBufferThatWasThere) {
  stated_entry test;
  test.gpb.content = ::strdup("what was there");
  test.keep();
  EXPECT_EQ(std::string(test.gpb.content, test.gpb.size), bytes);
}

TEST(KeepContent, OfTheSameBytesCountsOnce) {
  stated_entry test;
  test.keep();
  test.keep();
  EXPECT_EQ(test.verified->owners, 2U);
}

// A list in the usual order. Its entries are loaded with the bytes that they state.
struct loaded_list {
  explicit loaded_list(const std::vector<entry> &entries = {{ZOT_CAT_AP, "a", 1, 0, "ap a"},
                                                            {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"},
                                                            {ZOT_CAT_WLAN, "b", 7, 0, "wlan b"},
                                                            {ZOT_CAT_ZONE, "z", 1, 0, "zone z"}})
      : gpbs(list_of(handle.get(), entries)) {
    for (const entry &from : entries) {
      zot_gpb &gpb = entry_at(gpbs.get(), loaded++);
      keep_as_verified(gpb, from.bytes);
    }
  }

  // The index of the entry whose bytes are found; -1 if there is none.
  int find(zot::listed_files &files, const entry &wanted) {
    zot_gpb *const gpb = new_gpb(wanted);
    const zot_verified *const found = files.verified_of(*gpb);
    zot_priv_free_gpb(handle.get(), gpb);
    for (size_t place = 0; place < loaded; ++place) {
      if (found != nullptr && entry_at(gpbs.get(), place).verified == found) {
        return static_cast<int>(place);
      }
    }
    return found == nullptr ? -1 : -2;
  }
  int find(const entry &wanted) {
    zot::listed_files files(gpbs.get());
    return find(files, wanted);
  }

  model_handle handle;
  zot::gpb_list_owner gpbs;
  size_t loaded = 0;
};

TEST(ListedFiles, EveryEntryIsFoundInTheOrderOfTheList) {
  loaded_list list;
  zot::listed_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_AP, "a", 1, 0, "ap a"}), 0);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), 1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "b", 7, 0, "wlan b"}), 2);
  EXPECT_EQ(list.find(files, {ZOT_CAT_ZONE, "z", 1, 0, "zone z"}), 3);
}

TEST(ListedFiles, EntriesInBetweenThatTheListLacksHinderNoLaterOne) {
  loaded_list list;
  zot::listed_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_ACCESS_LIST, "x", 1, 0, "none"}), -1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), 1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "aa", 1, 0, "none"}), -1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "b", 6, 0, "none"}), -1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "b", 7, 0, "wlan b"}), 2);
}

TEST(ListedFiles, OneEntryMayBeAskedForTwice) {
  loaded_list list;
  zot::listed_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), 1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), 1);
}

TEST(ListedFiles, AskingBackwardsFindsNothing) {
  loaded_list list;
  zot::listed_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "b", 7, 0, "wlan b"}), 2);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(ListedFiles, NothingIsFoundBeyondTheEnd) {
  loaded_list list;
  zot::listed_files files(list.gpbs.get());
  EXPECT_EQ(list.find(files, {ZOT_CAT_ORB_CERT, "o", 1, 0, "none"}), -1);
  EXPECT_EQ(list.find(files, {ZOT_CAT_ORB_CERT, "p", 1, 0, "none"}), -1);
}

TEST(ListedFiles, EntryOfAnotherSizeIsNotFound) {
  loaded_list list;
  entry_at(list.gpbs.get(), 1).size = 5;
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(ListedFiles, EntryOfAnotherChecksumIsNotFound) {
  loaded_list list;
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "WLAN A"}), -1);
}

TEST(ListedFiles, EntryWithoutBytesIsNotFound) {
  loaded_list list;
  zot::drop_content(entry_at(list.gpbs.get(), 1));
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(ListedFiles, EntryWithBytesThatNobodyVerifiedIsNotFound) {
  loaded_list list;
  zot_gpb &gpb = entry_at(list.gpbs.get(), 1);
  zot::drop_content(gpb);
  gpb.content = ::strdup("wlan a");
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(ListedFiles, EntryIsNamedWhetherItHasBytesOrNot) {
  loaded_list list;
  zot::drop_content(entry_at(list.gpbs.get(), 1));
  zot_gpb *const wanted = new_gpb({ZOT_CAT_WLAN, "a", 1, 0, "wlan a"});
  EXPECT_TRUE(zot::listed_files(list.gpbs.get()).names(*wanted));
  state_checksum(*wanted, sha256_hex("other"));
  EXPECT_FALSE(zot::listed_files(list.gpbs.get()).names(*wanted));
  zot_priv_free_gpb(list.handle.get(), wanted);
}

TEST(ListedFiles, EmptyListHoldsNothing) {
  loaded_list list(std::vector<entry>{});
  EXPECT_EQ(list.find({ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

TEST(ListedFiles, NoListHoldsNothing) {
  loaded_list list;
  zot::listed_files files(nullptr);
  EXPECT_EQ(list.find(files, {ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}), -1);
}

}  // namespace
