// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;

// Two configurations of one cluster, and the difference between them.
struct difference_of {
  difference_of(const std::vector<entry> &current, const std::vector<entry> &fresh)
      : current_k(k_of_cluster("c-1")),
        new_k(k_of_cluster("c-1")),
        current_gpbs(list_of(handle.get(), current)),
        new_gpbs(list_of(handle.get(), fresh)),
        out(zot::make_gpb_list(handle.get())) {}

  int run() {
    return zot_priv_build_full_diff_gpb_list(handle.get(), current_k.get(), new_k.get(),
                                             current_gpbs.get(), new_gpbs.get(), out.get());
  }
  lines marks() {
    run();
    return marks_of(out.get());
  }
  lines logged() { return logged_by(handle.log(), "zot_priv_build_full_diff_gpb_list"); }

  model_handle handle;
  zot::k_owner current_k;
  zot::k_owner new_k;
  zot::gpb_list_owner current_gpbs;
  zot::gpb_list_owner new_gpbs;
  zot::gpb_list_owner out;
};

const std::vector<entry> two_entries = {{ZOT_CAT_WLAN, "a", 1}, {ZOT_CAT_ZONE, "z", 1}};

// An entry without a path cannot be copied.
void take_path(zot_gpb &gpb) {
  std::free(gpb.path);
  gpb.path = nullptr;
}

TEST(Diff, MissingHandleIsRefused) {
  difference_of test(two_entries, {});
  EXPECT_EQ(zot_priv_build_full_diff_gpb_list(nullptr, test.current_k.get(), test.new_k.get(),
                                              test.current_gpbs.get(), test.new_gpbs.get(),
                                              test.out.get()),
            ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(zot_list_is_empty(test.out.get()));
}

TEST(Diff, MissingCurrentListIsRecordedWithBothLists) {
  difference_of test({}, {});
  EXPECT_EQ(
      zot_priv_build_full_diff_gpb_list(test.handle.get(), test.current_k.get(), test.new_k.get(),
                                        nullptr, test.new_gpbs.get(), test.out.get()),
      ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_build_full_diff_gpb_list]: null input " +
                                          address_text(nullptr) + " " +
                                          address_text(test.new_gpbs.get()));
}

TEST(Diff, MissingNewListIsRecordedWithBothLists) {
  difference_of test({}, {});
  EXPECT_EQ(
      zot_priv_build_full_diff_gpb_list(test.handle.get(), test.current_k.get(), test.new_k.get(),
                                        test.current_gpbs.get(), nullptr, test.out.get()),
      ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_build_full_diff_gpb_list]: null input " +
                                          address_text(test.current_gpbs.get()) + " " +
                                          address_text(nullptr));
}

TEST(Diff, WithoutAnyKIsEmpty) {
  difference_of test(two_entries, two_entries);
  test.current_k.reset();
  test.new_k.reset();
  mark_status(test.handle.get());
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_TRUE(zot_list_is_empty(test.out.get()));
  EXPECT_TRUE(test.handle.log().lines().empty());
}

TEST(Diff, MarksWhatChangedInTheOrderOfTheLists) {
  difference_of test({{ZOT_CAT_WLAN, "a", 1}, {ZOT_CAT_ZONE, "z", 1}},
                     {{ZOT_CAT_WLAN, "a", 2}, {ZOT_CAT_WLAN, "b", 1}});
  EXPECT_EQ(test.marks(), (lines{"/Wlan/a/2 0x10", "/Wlan/b/1 0x08", "/Zone/z/1 0x04"}));
}

TEST(Diff, LowerVersionIsAModificationToo) {
  difference_of test({{ZOT_CAT_WLAN, "a", 9}}, {{ZOT_CAT_WLAN, "a", 3}});
  EXPECT_EQ(test.marks(), lines{"/Wlan/a/3 0x10"});
}

TEST(Diff, IdenticalListsOfOneClusterAreUnchanged) {
  difference_of test(two_entries, two_entries);
  EXPECT_EQ(test.marks(), (lines{"/Wlan/a/1 0x02", "/Zone/z/1 0x02"}));
}

TEST(Diff, IdenticalListsOfTwoClustersAreModified) {
  difference_of test(two_entries, two_entries);
  test.new_k = k_of_cluster("c-2");
  EXPECT_EQ(test.marks(), (lines{"/Wlan/a/1 0x10", "/Zone/z/1 0x10"}));
}

TEST(Diff, AnotherClusterStillTellsAddedAndDeletedApart) {
  difference_of test({{ZOT_CAT_WLAN, "a", 1}}, {{ZOT_CAT_WLAN, "b", 1}});
  test.new_k = k_of_cluster("c-2");
  EXPECT_EQ(test.marks(), (lines{"/Wlan/a/1 0x04", "/Wlan/b/1 0x08"}));
}

TEST(Diff, WithoutACurrentConfigurationEverythingIsAdded) {
  difference_of test({}, two_entries);
  test.current_k.reset();
  EXPECT_EQ(test.marks(), (lines{"/Wlan/a/1 0x08", "/Zone/z/1 0x08"}));
}

TEST(Diff, WithoutANewConfigurationEverythingIsDeleted) {
  difference_of test(two_entries, {});
  test.new_k.reset();
  EXPECT_EQ(test.marks(), (lines{"/Wlan/a/1 0x04", "/Zone/z/1 0x04"}));
}

TEST(Diff, EntriesBeforeAndAfterTheOtherListAreFound) {
  difference_of test({{ZOT_CAT_AP, "a", 1}, {ZOT_CAT_WLAN, "m", 1}},
                     {{ZOT_CAT_WLAN, "b", 1}, {ZOT_CAT_WLAN, "m", 1}, {ZOT_CAT_ZONE, "z", 1}});
  EXPECT_EQ(test.marks(),
            (lines{"/Ap/a/1 0x04", "/Wlan/b/1 0x08", "/Wlan/m/1 0x02", "/Zone/z/1 0x08"}));
}

TEST(Diff, OfTwoEmptyListsIsEmpty) {
  difference_of test({}, {});
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_TRUE(zot_list_is_empty(test.out.get()));
}

TEST(Diff, UnchangedEntryComesFromTheCurrentList) {
  difference_of test(two_entries, two_entries);
  take_path(entry_at(test.new_gpbs.get(), 0));
  EXPECT_EQ(test.marks(), (lines{"/Wlan/a/1 0x02", "/Zone/z/1 0x02"}));
}

// A publisher may give a version in force to other bytes.
TEST(Diff, EqualEntryOfOtherBytesComesFromTheNewListAndStaysUnchanged) {
  for (const char *const bytes : {"newer", "new"}) {
    difference_of test({{ZOT_CAT_WLAN, "a", 1, 0, "old"}}, {{ZOT_CAT_WLAN, "a", 1, 0, bytes}});
    EXPECT_EQ(test.marks(), lines{"/Wlan/a/1 0x02"});
    EXPECT_STREQ(entry_at(test.out.get(), 0).checksum, entry_at(test.new_gpbs.get(), 0).checksum);
    EXPECT_EQ(entry_at(test.out.get(), 0).size, std::strlen(bytes));
  }
}

// Its file has the name that the new K states.
TEST(Diff, EqualEntryOfAnotherPathComesFromTheNewListAndStaysUnchanged) {
  difference_of test(two_entries, two_entries);
  zot_gpb &fresh = entry_at(test.new_gpbs.get(), 0);
  take_path(fresh);
  fresh.path = ::strdup("/Wlan/a/0x1");
  EXPECT_EQ(test.marks(), (lines{"/Wlan/a/0x1 0x02", "/Zone/z/1 0x02"}));
}

TEST(Diff, ModifiedEntryComesFromTheNewList) {
  difference_of test({{ZOT_CAT_WLAN, "a", 1, 0, "old"}}, {{ZOT_CAT_WLAN, "a", 2, 0, "newer"}});
  test.run();
  EXPECT_EQ(entry_at(test.out.get(), 0).size, 5U);
}

TEST(Diff, EqualEntryOfAnotherClusterComesFromTheNewList) {
  difference_of test({{ZOT_CAT_WLAN, "a", 1, 0, "old"}}, {{ZOT_CAT_WLAN, "a", 1, 0, "newer"}});
  test.new_k = k_of_cluster("c-2");
  test.run();
  EXPECT_EQ(entry_at(test.out.get(), 0).size, 5U);
}

TEST(Diff, LeavesBothListsAsTheyWere) {
  difference_of test(two_entries, {{ZOT_CAT_WLAN, "a", 2}});
  test.run();
  EXPECT_EQ(marks_of(test.current_gpbs.get()), (lines{"/Wlan/a/1 0x00", "/Zone/z/1 0x00"}));
  EXPECT_EQ(marks_of(test.new_gpbs.get()), lines{"/Wlan/a/2 0x00"});
}

TEST(Diff, HoldsCopiesWithoutContent) {
  difference_of test(two_entries, two_entries);
  entry_at(test.current_gpbs.get(), 0).content = ::strdup("bytes");
  test.run();
  EXPECT_EQ(entry_at(test.out.get(), 0).content, nullptr);
  EXPECT_NE(entry_at(test.out.get(), 0).path, entry_at(test.current_gpbs.get(), 0).path);
}

TEST(Diff, EveryComparisonIsLoggedWithItsKind) {
  difference_of test({{ZOT_CAT_AP, "a", 1}, {ZOT_CAT_WLAN, "a", 1}, {ZOT_CAT_ZONE, "z", 1}},
                     {{ZOT_CAT_WLAN, "a", 2}, {ZOT_CAT_ZONE, "b", 1}, {ZOT_CAT_ZONE, "z", 1}});
  test.run();
  EXPECT_EQ(test.logged(),
            (lines{"3 128 Compare res: 1\n", "3 128 Compare res: 3\n", "3 128 Compare res: 2\n",
                   "3 128 Compare res: 0\n", "3 1 Build diff list: Done\n"}));
}

TEST(Diff, AnotherClusterIsLogged) {
  difference_of test({}, {});
  test.new_k = k_of_cluster("c-2");
  test.run();
  EXPECT_EQ(test.logged(), (lines{"3 1 Different cluster: original:c-1, new:c-2\n",
                                  "3 1 Build diff list: Done\n"}));
}

TEST(Diff, MissingCurrentKIsLoggedAsNull) {
  difference_of test({}, {});
  test.current_k.reset();
  test.run();
  EXPECT_EQ(test.logged().front(), "3 1 Different cluster: original:Null, new:c-1\n");
}

TEST(Diff, MissingNewKIsLoggedAsNull) {
  difference_of test({}, {});
  test.new_k.reset();
  test.run();
  EXPECT_EQ(test.logged().front(), "3 1 Different cluster: original:c-1, new:Null\n");
}

TEST(Diff, SuccessClearsTheCodeAlone) {
  difference_of test({}, {});
  mark_status(test.handle.get());
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_EQ(test.handle.get()->err, ZOT_OK);
  EXPECT_EQ(test.handle.error_text(), "an earlier text");
}

TEST(Diff, FailingCopyEmptiesTheOutput) {
  difference_of test({}, two_entries);
  take_path(entry_at(test.new_gpbs.get(), 1));
  EXPECT_EQ(test.run(), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_gpb_list_cpy]: src path is null");
  EXPECT_TRUE(zot_list_is_empty(test.out.get()));
}

// A handle whose current slot holds one entry, and a new configuration for it.
struct marked_list {
  explicit marked_list(bool with_current = true) {
    if (with_current) {
      zot_priv_set_k(handle.get(), ZOT_SLOT_CURRENT, k_of_cluster("c-1").release());
      zot_priv_set_gpb(handle.get(), ZOT_SLOT_CURRENT,
                       list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}}).release());
    }
    new_gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 2}, {ZOT_CAT_WLAN, "b", 1}});
  }

  int update(const char *root = "/a/root") {
    return zot_priv_update_cached_ret_gpb_list(handle.get(), new_k.get(), new_gpbs.get(), root);
  }
  zot::gpb_list_owner build() {
    return {zot_priv_build_ret_gpb_list(handle.get(), new_k.get(), new_gpbs.get(), "/a/root"),
            {handle.get()}};
  }

  model_handle handle;
  zot::k_owner new_k = k_of_cluster("c-1");
  zot::gpb_list_owner new_gpbs{nullptr, {nullptr}};
};

TEST(BuildMarkedList, ComparesWithTheCurrentSlot) {
  marked_list test;
  const auto marked = test.build();
  ASSERT_NE(marked, nullptr);
  EXPECT_EQ(marks_of(marked.get()), (lines{"/Wlan/a/2 0x10", "/Wlan/b/1 0x08"}));
}

TEST(BuildMarkedList, EmptyCurrentSlotMakesEverythingAdded) {
  marked_list test(false);
  const auto marked = test.build();
  ASSERT_NE(marked, nullptr);
  EXPECT_EQ(marks_of(marked.get()), (lines{"/Wlan/a/2 0x08", "/Wlan/b/1 0x08"}));
}

TEST(BuildMarkedList, CurrentKWithoutListCountsAsEmpty) {
  marked_list test;
  zot_priv_free_gpb_ex_safe(test.handle.get(), ZOT_SLOT_CURRENT, nullptr);
  const auto marked = test.build();
  ASSERT_NE(marked, nullptr);
  EXPECT_EQ(marks_of(marked.get()), (lines{"/Wlan/a/2 0x08", "/Wlan/b/1 0x08"}));
}

TEST(BuildMarkedList, FailureIsLeftInTheHandle) {
  marked_list test;
  take_path(entry_at(test.new_gpbs.get(), 1));
  EXPECT_EQ(test.build(), nullptr);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_WRONG_INPUT);
}

TEST(BuildMarkedList, MissingHandleGivesNone) {
  marked_list test;
  EXPECT_EQ(zot_priv_build_ret_gpb_list(nullptr, test.new_k.get(), test.new_gpbs.get(), "/a/root"),
            nullptr);
}

TEST(CacheMarkedList, MissingHandleIsRefused) {
  marked_list test;
  EXPECT_EQ(zot_priv_update_cached_ret_gpb_list(nullptr, test.new_k.get(), test.new_gpbs.get(),
                                                "/a/root"),
            ZOT_ERR_NULL_INPUT);
}

TEST(CacheMarkedList, MissingArgumentIsRecorded) {
  marked_list test;
  zot_ctx *const handle = test.handle.get();
  zot_k *const k = test.new_k.get();
  zot_list *const gpbs = test.new_gpbs.get();
  EXPECT_EQ(zot_priv_update_cached_ret_gpb_list(handle, nullptr, gpbs, "/r"), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_update_cached_ret_gpb_list(handle, k, nullptr, "/r"), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_update_cached_ret_gpb_list(handle, k, gpbs, nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.log().count("[zot_priv_update_cached_ret_gpb_list]: null input\n"), 3U);
  EXPECT_EQ(handle->err, ZOT_ERR_NULL_INPUT);
}

TEST(CacheMarkedList, EmptyRootIsRecorded) {
  marked_list test;
  EXPECT_EQ(test.update(""), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_update_cached_ret_gpb_list]: empty GPB root");
  EXPECT_EQ(test.handle.get()->ret.list, nullptr);
}

TEST(CacheMarkedList, StoresTheListInTheHandle) {
  marked_list test;
  EXPECT_EQ(test.update(), ZOT_OK);
  ASSERT_NE(test.handle.get()->ret.list, nullptr);
  EXPECT_EQ(marks_of(test.handle.get()->ret.list), (lines{"/Wlan/a/2 0x10", "/Wlan/b/1 0x08"}));
}

TEST(CacheMarkedList, RefersToTheRoot) {
  marked_list test;
  const std::string root = "/a/root";
  test.update(root.c_str());
  EXPECT_EQ(test.handle.get()->ret.root, root.c_str());
}

TEST(CacheMarkedList, FreesTheListBefore) {
  marked_list test;
  test.update();
  const std::string before = address_text(test.handle.get()->ret.list);
  test.handle.log().clear();
  EXPECT_EQ(test.update(), ZOT_OK);
  EXPECT_EQ(test.handle.log().count("free GPB list " + before + ": Done\n"), 1U);
  EXPECT_EQ(marks_of(test.handle.get()->ret.list), (lines{"/Wlan/a/2 0x10", "/Wlan/b/1 0x08"}));
}

TEST(CacheMarkedList, FailedDiffKeepsTheListBefore) {
  marked_list test;
  const std::string root = "/a/root";
  test.update(root.c_str());
  take_path(entry_at(test.new_gpbs.get(), 1));
  EXPECT_EQ(test.update("/another/root"), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(marks_of(test.handle.get()->ret.list), (lines{"/Wlan/a/2 0x10", "/Wlan/b/1 0x08"}));
  EXPECT_EQ(test.handle.get()->ret.root, root.c_str());
}

TEST(CacheMarkedList, SuccessIsLogged) {
  marked_list test;
  test.update();
  EXPECT_EQ(logged_by(test.handle.log(), "zot_priv_update_cached_ret_gpb_list"),
            lines{"3 1 Update Cached return list memory: Done\n"});
}

}  // namespace
