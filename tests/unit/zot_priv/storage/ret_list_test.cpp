// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/element.hpp"
#include "tests/unit/zot_priv/model/model_records.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;
using zot::test::every_category;
using zot::test::returned_entry;

constexpr uint32_t unknown_mark = 0x01;

const std::vector<entry> one_of_each = {{ZOT_CAT_WLAN, "a", 1, ZOT_STAT_UNCHANGED, "wlan a"},
                                        {ZOT_CAT_WLAN, "b", 1, ZOT_STAT_DELETED, "wlan b"},
                                        {ZOT_CAT_WLAN, "c", 1, ZOT_STAT_ADDED, "wlan c!"},
                                        {ZOT_CAT_ZONE, "z", 1, ZOT_STAT_MODIFIED, "zone z"}};

zot_catset only(int32_t category) {
  zot_catset set{};
  zot_catset_add(&set, category);
  return set;
}

// A marked list, its files, and a returned list to fill.
class request {
 public:
  explicit request(const std::vector<entry> &entries = one_of_each)
      : marked(list_of(handle.get(), entries)) {
    zot_list_init(&ret);
    for (const entry &from : entries) {
      if (from.stat != ZOT_STAT_DELETED) {
        write(from.path(), from.bytes);
      }
    }
  }
  request(const request &) = delete;
  request &operator=(const request &) = delete;
  ~request() { zot_priv_free_ret_data(&ret); }

  void write(const std::string &path, const std::string &bytes) {
    zot::test::write_bytes(dir.path() + "/config" + path, bytes);
  }
  int run(uint32_t mask, const zot_catset &catset = every_category()) {
    return zot_priv_get_ret_data_via_gpb(handle.get(), marked.get(), &ret, mask, dir.path().c_str(),
                                         catset);
  }
  // Runs again, with an empty returned list.
  int run_again(uint32_t mask) {
    zot_priv_free_ret_data(&ret);
    return run(mask);
  }
  // "key stat bytes", or "key stat -" without data.
  lines returned() {
    lines found;
    for (const returned_entry &one : zot::test::entries_of(&ret)) {
      char stat[16];
      std::snprintf(stat, sizeof stat, " 0x%02x ", one.stat);
      found.push_back(one.key + stat + (one.has_data ? one.bytes : "-"));
    }
    return found;
  }
  lines logged() { return logged_by(handle.log(), "zot_priv_get_ret_data_via_gpb"); }

  model_handle handle;
  zot::test::temp_dir dir;
  zot::gpb_list_owner marked;
  zot_list ret;
};

TEST(ReturnedList, MissingHandleIsRefused) {
  request test;
  EXPECT_EQ(zot_priv_get_ret_data_via_gpb(nullptr, test.marked.get(), &test.ret, 0x1e, "/r",
                                          every_category()),
            ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(zot_list_is_empty(&test.ret));
}

TEST(ReturnedList, MissingArgumentIsRecordedWithAllThree) {
  request test;
  zot_list *const marked = test.marked.get();
  const char root[] = "/r";
  const std::string prefix = "[zot_priv_get_ret_data_via_gpb]: null input ";
  const std::string none = address_text(nullptr);
  zot_ctx *const handle = test.handle.get();
  const zot_catset all = every_category();

  EXPECT_EQ(zot_priv_get_ret_data_via_gpb(handle, nullptr, &test.ret, 0x1e, root, all),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.error_text(),
            prefix + none + ", " + address_text(&test.ret) + ", " + address_text(root));
  EXPECT_EQ(zot_priv_get_ret_data_via_gpb(handle, marked, nullptr, 0x1e, root, all),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.error_text(),
            prefix + address_text(marked) + ", " + none + ", " + address_text(root));
  EXPECT_EQ(zot_priv_get_ret_data_via_gpb(handle, marked, &test.ret, 0x1e, nullptr, all),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.error_text(),
            prefix + address_text(marked) + ", " + address_text(&test.ret) + ", " + none);
}

TEST(ReturnedList, OfAnEmptyMarkedListIsEmptyWithoutATrace) {
  request test(std::vector<entry>{});
  mark_status(test.handle.get());
  EXPECT_EQ(test.run(0x1e), ZOT_OK);
  EXPECT_TRUE(zot_list_is_empty(&test.ret));
  EXPECT_TRUE(test.handle.log().lines().empty());
  EXPECT_TRUE(has_marked_status(test.handle.get()));
}

struct mask_case {
  const char *name;
  uint32_t mask;
  lines returned;
};

class RequestMask : public testing::TestWithParam<mask_case> {};

TEST_P(RequestMask, SelectsTheEntries) {
  request test;
  EXPECT_EQ(test.run(GetParam().mask), ZOT_OK) << test.handle.error_text();
  EXPECT_EQ(test.returned(), GetParam().returned);
}

INSTANTIATE_TEST_SUITE_P(
    Model, RequestMask,
    testing::Values(
        mask_case{"Unchanged", 0x02, {"a 0x02 wlan a"}}, mask_case{"Deleted", 0x04, {"b 0x04 -"}},
        mask_case{"Added", 0x08, {"c 0x08 wlan c!"}},
        mask_case{"Modified", 0x10, {"z 0x10 zone z"}},
        mask_case{"Changes", 0x1c, {"b 0x04 -", "c 0x08 wlan c!", "z 0x10 zone z"}},
        mask_case{"All", 0x1e, {"a 0x02 wlan a", "b 0x04 -", "c 0x08 wlan c!", "z 0x10 zone z"}},
        mask_case{"Full", 0x20, {"a 0x20 wlan a", "c 0x20 wlan c!", "z 0x20 zone z"}},
        mask_case{"FullWithDeleted", 0x24, {"a 0x20 wlan a", "c 0x20 wlan c!", "z 0x20 zone z"}},
        mask_case{"Cached", 0x40, {"a 0x02 wlan a", "b 0x04 -", "c 0x08 wlan c!", "z 0x10 zone z"}},
        mask_case{"CachedWithFull",
                  0x60,
                  {"a 0x02 wlan a", "b 0x04 -", "c 0x08 wlan c!", "z 0x10 zone z"}},
        mask_case{"CachedWithAdded",
                  0x48,
                  {"a 0x02 wlan a", "b 0x04 -", "c 0x08 wlan c!", "z 0x10 zone z"}},
        mask_case{"OtherBits", 0x01, {}}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(ReturnedList, DeletedEntryHasNoDataAndNoSize) {
  request test;
  ASSERT_EQ(test.run(ZOT_STAT_DELETED), ZOT_OK);
  const zot_ret_data &one = zot::ret_data_of(test.ret.next);
  EXPECT_EQ(one.data, nullptr);
  EXPECT_EQ(one.size, 0U);
  EXPECT_EQ(one.category, ZOT_CAT_WLAN);
  EXPECT_STREQ(one.key, "b");
}

TEST(ReturnedList, EntryRefersToTheBytesOfTheMarkedList) {
  request test;
  ASSERT_EQ(test.run(ZOT_STAT_ADDED), ZOT_OK);
  const zot_ret_data &one = zot::ret_data_of(test.ret.next);
  EXPECT_EQ(one.data, entry_at(test.marked.get(), 2).content);
  EXPECT_EQ(one.size, 7U);
  EXPECT_EQ(one.category, ZOT_CAT_WLAN);
  EXPECT_STREQ(one.key, "c");
}

TEST(ReturnedList, FullRequestLeavesTheMarksOfTheMarkedList) {
  request test;
  test.run(ZOT_STAT_FULL);
  EXPECT_EQ(marks_of(test.marked.get()),
            (lines{"/Wlan/a/1 0x02", "/Wlan/b/1 0x04", "/Wlan/c/1 0x08", "/Zone/z/1 0x10"}));
}

class CategoryOutsideTheSet : public testing::TestWithParam<uint32_t> {};

TEST_P(CategoryOutsideTheSet, IsNeverReturned) {
  request test;
  EXPECT_EQ(test.run(GetParam(), only(ZOT_CAT_AP)), ZOT_OK);
  EXPECT_TRUE(zot_list_is_empty(&test.ret));
}

INSTANTIATE_TEST_SUITE_P(EveryMask, CategoryOutsideTheSet,
                         testing::Values(0x02U, 0x04U, 0x08U, 0x10U, 0x1eU, 0x20U, 0x40U));

TEST(ReturnedList, HoldsTheCategoriesOfTheSetOnly) {
  request test;
  test.run(0x1e, only(ZOT_CAT_ZONE));
  EXPECT_EQ(test.returned(), lines{"z 0x10 zone z"});
}

TEST(ReturnedList, CategoryOfALaterWordOfTheSetIsFound) {
  request test({{ZOT_CAT_VPN, "v", 1, ZOT_STAT_ADDED, "vpn"},
                {ZOT_CAT_TENANT, "t", 1, ZOT_STAT_ADDED, "tenant"}});
  zot_catset set{};
  set.word[2] = 1U << 15;
  test.run(0x1e, set);
  EXPECT_EQ(test.returned(), lines{"v 0x08 vpn"});
}

TEST(ReturnedList, EveryStepIsLogged) {
  request test;
  test.run(0x0c, only(ZOT_CAT_WLAN));
  EXPECT_EQ(test.logged(),
            (lines{"3 1 Read from root: " + test.dir.path() + "\n",
                   "3 1 Add cat = Wlan, stat=0x4 into returned list.\n",
                   "3 1 Add cat = Wlan, stat=0x8 into returned list.\n",
                   "3 1 Ignore uninterested cat: Zone\n", "2 1 Build returned list: Done\n"}));
}

TEST(ReturnedList, FullRequestLogsTheMarkAndLeavesDeletedOutSilently) {
  request test;
  test.run(ZOT_STAT_FULL);
  EXPECT_EQ(test.logged(), (lines{"3 1 Read from root: " + test.dir.path() + "\n",
                                  "3 1 Add cat = Wlan, stat=0x2 into returned list.\n",
                                  "3 1 Add cat = Wlan, stat=0x8 into returned list.\n",
                                  "3 1 Add cat = Zone, stat=0x10 into returned list.\n",
                                  "2 1 Build returned list: Done\n"}));
}

TEST(ReturnedList, SuccessClearsTheCodeAlone) {
  request test;
  mark_status(test.handle.get());
  EXPECT_EQ(test.run(0x1e), ZOT_OK);
  EXPECT_EQ(test.handle.get()->err, ZOT_OK);
  EXPECT_EQ(test.handle.error_text(), "an earlier text");
}

TEST(ReturnedList, FilesAreReadAgainForEveryRequest) {
  request test;
  test.run(0x1e);
  EXPECT_EQ(test.handle.get()->stat.bytes_read, 19U);
  test.run_again(0x1e);
  EXPECT_EQ(test.handle.get()->stat.bytes_read, 38U);
}

TEST(ReturnedList, FullRequestReadsOnlyWhatIsNotLoaded) {
  request test;
  test.run(ZOT_STAT_ADDED);
  EXPECT_EQ(test.handle.get()->stat.bytes_read, 7U);
  test.run_again(ZOT_STAT_FULL);
  EXPECT_EQ(test.handle.get()->stat.bytes_read, 19U);
}

TEST(ReturnedList, FullRequestReturnsLoadedBytesOfAFileThatIsGone) {
  request test;
  test.run(ZOT_STAT_FULL);
  std::remove((test.dir.path() + "/config/Zone/z/1").c_str());
  EXPECT_EQ(test.run_again(ZOT_STAT_FULL), ZOT_OK);
  EXPECT_EQ(test.returned(), (lines{"a 0x20 wlan a", "c 0x20 wlan c!", "z 0x20 zone z"}));
}

TEST(ReturnedList, DeletedEntryNeedsNoFile) {
  request test;
  EXPECT_EQ(test.run(ZOT_STAT_DELETED), ZOT_OK);
  EXPECT_EQ(test.handle.get()->stat.bytes_read, 0U);
}

class AlteredFile : public testing::TestWithParam<uint32_t> {
 protected:
  AlteredFile() { test_.write("/Zone/z/1", "ZONE z"); }
  request test_;
};

TEST_P(AlteredFile, FailsTheRequest) {
  EXPECT_EQ(test_.run(GetParam()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test_.handle.get()->err, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test_.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB checksum: expect chksum = " +
                zot::test::sha256_hex("zone z"));
}

TEST_P(AlteredFile, LeavesTheReturnedListEmpty) {
  test_.run(GetParam());
  EXPECT_TRUE(zot_list_is_empty(&test_.ret));
}

TEST_P(AlteredFile, LeavesTheMarkedListIntact) {
  test_.run(GetParam());
  EXPECT_EQ(marks_of(test_.marked.get()),
            (lines{"/Wlan/a/1 0x02", "/Wlan/b/1 0x04", "/Wlan/c/1 0x08", "/Zone/z/1 0x10"}));
}

TEST_P(AlteredFile, KeepsTheBytesThatWereLoadedBefore) {
  test_.run(GetParam());
  const zot_gpb &loaded = entry_at(test_.marked.get(), 2);
  ASSERT_NE(loaded.content, nullptr);
  EXPECT_EQ(std::string(loaded.content, loaded.size), "wlan c!");
}

TEST_P(AlteredFile, LeavesNoUnverifiedBytes) {
  test_.run(GetParam());
  EXPECT_EQ(entry_at(test_.marked.get(), 3).content, nullptr);
}

TEST_P(AlteredFile, FailsALaterFullRequestToo) {
  test_.run(GetParam());
  EXPECT_EQ(test_.run_again(ZOT_STAT_FULL), ZOT_ERR_CORRUPTED);
}

TEST_P(AlteredFile, IsReturnedOnceItIsRight) {
  test_.run(GetParam());
  test_.write("/Zone/z/1", "zone z");
  EXPECT_EQ(test_.run_again(ZOT_STAT_FULL), ZOT_OK);
  EXPECT_EQ(test_.returned().back(), "z 0x20 zone z");
}

INSTANTIATE_TEST_SUITE_P(EveryRequest, AlteredFile, testing::Values(0x1eU, 0x20U, 0x40U));

TEST(ReturnedList, FileAlteredAfterItsFirstUseFailsTheNextRequest) {
  request test;
  ASSERT_EQ(test.run(0x1e), ZOT_OK);
  test.write("/Wlan/c/1", "WLAN c!");
  EXPECT_EQ(test.run_again(0x1e), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(zot_list_is_empty(&test.ret));
}

TEST(ReturnedList, UnknownMarkIsRefused) {
  request test({{ZOT_CAT_WLAN, "a", 1, ZOT_STAT_ADDED, "wlan a"},
                {ZOT_CAT_ZONE, "z", 1, unknown_mark, "zone z"}});
  EXPECT_EQ(test.run(0x09), ZOT_ERR_UNKNOWN_OPT);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_UNKNOWN_OPT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_get_ret_data_via_gpb]:unknown stat:1");
  EXPECT_TRUE(zot_list_is_empty(&test.ret));
}

TEST(ReturnedList, TwoMarksAtOnceAreUnknown) {
  request test({{ZOT_CAT_WLAN, "a", 1, ZOT_STAT_ADDED | ZOT_STAT_MODIFIED, "wlan a"}});
  EXPECT_EQ(test.run(0x1e), ZOT_ERR_UNKNOWN_OPT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_get_ret_data_via_gpb]:unknown stat:24");
}

TEST(ReturnedList, UnknownMarkIsReturnedByAFullRequest) {
  request test({{ZOT_CAT_ZONE, "z", 1, unknown_mark, "zone z"}});
  EXPECT_EQ(test.run(ZOT_STAT_FULL), ZOT_OK);
  EXPECT_EQ(test.returned(), lines{"z 0x20 zone z"});
}

TEST(ReturnedList, SecondCachedRequestFailsForOtherBytesOfTheSameSize) {
  request test;
  ASSERT_EQ(test.run(ZOT_STAT_CACHED), ZOT_OK);
  test.write("/Wlan/c/1", "WLAN c!");
  EXPECT_EQ(test.run_again(ZOT_STAT_CACHED), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(test.handle.error_text(),
            "[zot_priv_verify_gpb]: wrong GPB checksum: expect chksum = " +
                zot::test::sha256_hex("wlan c!"));
  EXPECT_TRUE(zot_list_is_empty(&test.ret));
}

TEST(ReturnedList, FileThatWasAlteredAndIsRightAgainIsReturned) {
  request test;
  ASSERT_EQ(test.run(ZOT_STAT_CACHED), ZOT_OK);
  test.write("/Wlan/c/1", "WLAN c!");
  ASSERT_EQ(test.run_again(ZOT_STAT_CACHED), ZOT_ERR_CORRUPTED);
  test.write("/Wlan/c/1", "wlan c!");
  EXPECT_EQ(test.run_again(ZOT_STAT_CACHED), ZOT_OK);
}

// A request whose last entry states a checksum that no file has. The entry is returned only if
// bytes with that checksum are already known.
struct undigested : request {
  undigested() { state_checksum(entry_at(marked.get(), 3), stated); }

  // Fills a slot with the configuration that the entry belongs to, its bytes verified.
  void bring_in(uint32_t slot, const std::string &bytes) {
    zot::gpb_list_owner gpbs = list_of(
        handle.get(), {{ZOT_CAT_WLAN, "a", 1, 0, "wlan a"}, {ZOT_CAT_ZONE, "z", 1, 0, bytes}});
    zot_gpb &gpb = entry_at(gpbs.get(), 1);
    state_checksum(gpb, stated);
    keep_as_verified(gpb, bytes);
    zot_priv_set_gpb(handle.get(), slot, gpbs.release());
  }

  const std::string stated = std::string(64, 'f');
};

TEST(KnownReturnedList, EntryOfTheTemporarySlotIsNotDigested) {
  undigested test;
  test.bring_in(ZOT_SLOT_TMP, "zone z");
  EXPECT_EQ(test.run(ZOT_STAT_MODIFIED), ZOT_OK) << test.handle.error_text();
  EXPECT_EQ(test.returned(), lines{"z 0x10 zone z"});
}

TEST(KnownReturnedList, EntryOfTheCurrentSlotIsNotDigested) {
  undigested test;
  test.bring_in(ZOT_SLOT_CURRENT, "zone z");
  EXPECT_EQ(test.run(ZOT_STAT_MODIFIED), ZOT_OK) << test.handle.error_text();
  EXPECT_EQ(test.returned(), lines{"z 0x10 zone z"});
}

TEST(KnownReturnedList, CurrentSlotHelpsWhereTheTemporaryOneDoesNot) {
  undigested test;
  zot_priv_set_gpb(test.handle.get(), ZOT_SLOT_TMP,
                   list_of(test.handle.get(), {{ZOT_CAT_ZONE, "z", 1, 0, "zone z"}}).release());
  test.bring_in(ZOT_SLOT_CURRENT, "zone z");
  EXPECT_EQ(test.run(0x1e), ZOT_OK) << test.handle.error_text();
}

// A client's own download may fill entries with bytes that nobody verified.
TEST(KnownReturnedList, BytesThatNobodyVerifiedVouchForNothing) {
  for (const uint32_t slot : {ZOT_SLOT_TMP, ZOT_SLOT_CURRENT}) {
    undigested test;
    test.bring_in(slot, "zone z");
    zot_gpb &gpb = entry_at(zot_priv_get_gpb(test.handle.get(), slot), 1);
    zot::drop_content(gpb);
    gpb.content = ::strdup("zone z");
    EXPECT_EQ(test.run(ZOT_STAT_MODIFIED), ZOT_ERR_CORRUPTED) << slot;
  }
}

TEST(KnownReturnedList, OneFileIsInMemoryOnce) {
  request test;
  zot::gpb_list_owner gpbs = list_of(test.handle.get(), {{ZOT_CAT_ZONE, "z", 1, 0, "zone z"}});
  zot_gpb &in_force = entry_at(gpbs.get(), 0);
  keep_as_verified(in_force, "zone z");
  zot_priv_set_gpb(test.handle.get(), ZOT_SLOT_CURRENT, gpbs.release());
  ASSERT_EQ(test.run(ZOT_STAT_MODIFIED), ZOT_OK);
  EXPECT_EQ(entry_at(test.marked.get(), 3).content, in_force.content);
  EXPECT_EQ(zot::ret_data_of(test.ret.next).data, in_force.content);
}

// Content that somebody put into a record is never returned, whatever the request.
TEST(ReturnedList, ContentThatNobodyVerifiedIsReadFromTheFile) {
  for (const uint32_t mask : {uint32_t{ZOT_STAT_FULL}, uint32_t{ZOT_STAT_MODIFIED}}) {
    request test;
    entry_at(test.marked.get(), 3).content = ::strdup("EVIL z");
    ASSERT_EQ(test.run(mask, only(ZOT_CAT_ZONE)), ZOT_OK);
    const zot_ret_data &returned = zot::ret_data_of(test.ret.next);
    EXPECT_EQ(std::string(static_cast<const char *>(returned.data), returned.size), "zone z");
  }
}

TEST(ReturnedList, ContentThatNobodyVerifiedIsNotReturnedWithoutAFile) {
  for (const uint32_t mask : {uint32_t{ZOT_STAT_FULL}, uint32_t{ZOT_STAT_MODIFIED}}) {
    request test;
    entry_at(test.marked.get(), 3).content = ::strdup("EVIL z");
    test.write("/Zone/z/1", "EVIL z");
    EXPECT_EQ(test.run(mask, only(ZOT_CAT_ZONE)), ZOT_ERR_CORRUPTED);
    EXPECT_TRUE(zot_list_is_empty(&test.ret));
  }
}

TEST(KnownReturnedList, OtherSlotsDoNotCount) {
  for (const uint32_t slot : {ZOT_SLOT_LAST, ZOT_SLOT_CORRUPTED}) {
    undigested test;
    test.bring_in(slot, "zone z");
    EXPECT_EQ(test.run(ZOT_STAT_MODIFIED), ZOT_ERR_CORRUPTED) << slot;
  }
}

TEST(KnownReturnedList, WithoutKnownBytesTheChecksumDecides) {
  undigested test;
  EXPECT_EQ(test.run(ZOT_STAT_MODIFIED), ZOT_ERR_CORRUPTED);
}

TEST(KnownReturnedList, FileThatDiffersFromTheKnownBytesIsDigested) {
  undigested test;
  test.bring_in(ZOT_SLOT_TMP, "ZONE Z");
  EXPECT_EQ(test.run(ZOT_STAT_MODIFIED), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(entry_at(test.marked.get(), 3).content, nullptr);
}

TEST(KnownReturnedList, RightFileIsReturnedThoughTheSlotsHoldOtherBytes) {
  request test;
  zot::gpb_list_owner gpbs = list_of(test.handle.get(), {{ZOT_CAT_ZONE, "z", 1, 0, "zone z"}});
  keep_as_verified(entry_at(gpbs.get(), 0), "ZONE z");
  zot_priv_set_gpb(test.handle.get(), ZOT_SLOT_CURRENT, gpbs.release());
  EXPECT_EQ(test.run(ZOT_STAT_MODIFIED), ZOT_OK);
  EXPECT_EQ(test.returned(), lines{"z 0x10 zone z"});
}

TEST(KnownReturnedList, BytesOfTheEntryItselfAreKnown) {
  request test;
  ASSERT_EQ(test.run(ZOT_STAT_MODIFIED), ZOT_OK);
  zot_gpb &gpb = entry_at(test.marked.get(), 3);
  state_checksum(gpb, std::string(64, 'f'));
  keep_as_verified(gpb, "zone z");
  EXPECT_EQ(test.run_again(ZOT_STAT_MODIFIED), ZOT_OK) << test.handle.error_text();
}

TEST(KnownReturnedList, AlteredFileFailsBesideTheBytesOfTheSlots) {
  request test;
  zot::gpb_list_owner gpbs = list_of(test.handle.get(), {{ZOT_CAT_ZONE, "z", 1, 0, "zone z"}});
  keep_as_verified(entry_at(gpbs.get(), 0), "zone z");
  zot_priv_set_gpb(test.handle.get(), ZOT_SLOT_CURRENT, gpbs.release());
  test.write("/Zone/z/1", "ZONE z");
  EXPECT_EQ(test.run(0x1e), ZOT_ERR_CORRUPTED);
  EXPECT_TRUE(zot_list_is_empty(&test.ret));
}

TEST(KnownReturnedList, BytesReadAreCountedAll) {
  undigested test;
  test.bring_in(ZOT_SLOT_CURRENT, "zone z");
  ASSERT_EQ(test.run(0x1e), ZOT_OK);
  EXPECT_EQ(test.handle.get()->stat.bytes_read, 19U);
  ASSERT_EQ(test.run_again(0x1e), ZOT_OK);
  EXPECT_EQ(test.handle.get()->stat.bytes_read, 38U);
}

TEST(CachedReturnedList, ComesFromTheMarkedListOfTheHandle) {
  request test;
  test.handle.get()->ret.list = test.marked.release();
  test.handle.get()->ret.root = test.dir.path().c_str();
  EXPECT_EQ(zot_priv_fltr_ret_data(test.handle.get(), &test.ret, 0x18, every_category()), ZOT_OK);
  EXPECT_EQ(test.returned(), (lines{"c 0x08 wlan c!", "z 0x10 zone z"}));
}

TEST(CachedReturnedList, HonoursTheSet) {
  request test;
  test.handle.get()->ret.list = test.marked.release();
  test.handle.get()->ret.root = test.dir.path().c_str();
  zot_priv_fltr_ret_data(test.handle.get(), &test.ret, 0x18, only(ZOT_CAT_WLAN));
  EXPECT_EQ(test.returned(), lines{"c 0x08 wlan c!"});
}

TEST(CachedReturnedList, WithoutAMarkedListIsRefused) {
  request test;
  test.handle.get()->ret.root = test.dir.path().c_str();
  EXPECT_EQ(zot_priv_fltr_ret_data(test.handle.get(), &test.ret, 0x1e, every_category()),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_NULL_INPUT);
}

TEST(CachedReturnedList, MissingHandleIsRefused) {
  request test;
  EXPECT_EQ(zot_priv_fltr_ret_data(nullptr, &test.ret, 0x1e, every_category()), ZOT_ERR_NULL_INPUT);
}

TEST(FreeReturnedList, LeavesTheHeadEmpty) {
  request test;
  test.run(0x1e);
  zot_priv_free_ret_data(&test.ret);
  EXPECT_EQ(test.ret.next, &test.ret);
  EXPECT_EQ(test.ret.prev, &test.ret);
}

TEST(FreeReturnedList, LeavesTheBytesToTheMarkedList) {
  request test;
  test.run(ZOT_STAT_ADDED);
  zot_priv_free_ret_data(&test.ret);
  const zot_gpb &loaded = entry_at(test.marked.get(), 2);
  EXPECT_EQ(std::string(loaded.content, loaded.size), "wlan c!");
}

TEST(FreeReturnedList, EmptyListAndNoListAreAccepted) {
  zot_list head;
  zot_list_init(&head);
  zot_priv_free_ret_data(nullptr);
  zot_priv_free_ret_data(&head);
  EXPECT_TRUE(zot_list_is_empty(&head));
}

}  // namespace
