// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;

constexpr uint32_t no_slot = ZOT_SLOT_COUNT;

zot_k *put_k(model_handle &handle, uint32_t slot) {
  zot_k *const k = k_with_data("bytes").release();
  zot_priv_set_k(handle.get(), slot, k);
  return k;
}

zot_list *put_gpbs(model_handle &handle, uint32_t slot, const std::string &key = "a") {
  zot_list *const gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, key, 1}}).release();
  zot_priv_set_gpb(handle.get(), slot, gpbs);
  return gpbs;
}

lines k_lines(model_handle &handle) {
  return logged_by(handle.log(), "zot_priv_free_k_ex_safe");
}

lines gpb_lines(model_handle &handle) {
  return logged_by(handle.log(), "zot_priv_free_gpb_ex_safe");
}

TEST(Slot, HoldsWhatWasPut) {
  model_handle handle;
  for (uint32_t slot = 0; slot < ZOT_SLOT_COUNT; ++slot) {
    const zot_k *const k = put_k(handle, slot);
    const zot_list *const gpbs = put_gpbs(handle, slot);
    EXPECT_EQ(zot_priv_get_k(handle.get(), slot), k);
    EXPECT_EQ(zot_priv_get_gpb(handle.get(), slot), gpbs);
    EXPECT_EQ(handle.get()->slot[slot].k, k);
    EXPECT_EQ(handle.get()->slot[slot].gpbs, gpbs);
  }
}

TEST(Slot, IsEmptyAtFirst) {
  model_handle handle;
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_CURRENT), nullptr);
  EXPECT_EQ(zot_priv_get_gpb(handle.get(), ZOT_SLOT_CURRENT), nullptr);
}

TEST(Slot, InvalidIndexIsIgnored) {
  model_handle handle;
  const zot::k_owner k = k_with_data("bytes");
  const auto gpbs = list_of(handle.get(), {});
  const std::string before(reinterpret_cast<const char *>(handle.get()), sizeof(zot_ctx));
  zot_priv_set_k(handle.get(), no_slot, k.get());
  zot_priv_set_gpb(handle.get(), no_slot, gpbs.get());
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(handle.get()), sizeof(zot_ctx)), before);
  EXPECT_EQ(zot_priv_get_k(handle.get(), no_slot), nullptr);
  EXPECT_EQ(zot_priv_get_gpb(handle.get(), no_slot), nullptr);
}

TEST(Slot, MissingHandleHoldsNothing) {
  zot_priv_set_k(nullptr, ZOT_SLOT_CURRENT, nullptr);
  zot_priv_set_gpb(nullptr, ZOT_SLOT_CURRENT, nullptr);
  EXPECT_EQ(zot_priv_get_k(nullptr, ZOT_SLOT_CURRENT), nullptr);
  EXPECT_EQ(zot_priv_get_gpb(nullptr, ZOT_SLOT_CURRENT), nullptr);
}

TEST(Slot, NamesAreThoseOfTheLog) {
  EXPECT_STREQ(zot_priv_slot_name(ZOT_SLOT_CURRENT), "current");
  EXPECT_STREQ(zot_priv_slot_name(ZOT_SLOT_LAST), "last");
  EXPECT_STREQ(zot_priv_slot_name(ZOT_SLOT_TMP), "temporary");
  EXPECT_STREQ(zot_priv_slot_name(ZOT_SLOT_CORRUPTED), "corrupted");
  EXPECT_STREQ(zot_priv_slot_name(no_slot), "");
}

TEST(FreeKOfSlot, EmptySlotIsLeftAlone) {
  model_handle handle;
  zot_priv_free_k_ex_safe(handle.get(), ZOT_SLOT_CURRENT, nullptr);
  EXPECT_TRUE(handle.log().lines().empty());
}

TEST(FreeKOfSlot, InvalidSlotAndMissingHandleAreIgnored) {
  model_handle handle;
  zot_k *const k = put_k(handle, ZOT_SLOT_CURRENT);
  zot_priv_free_k_ex_safe(handle.get(), no_slot, nullptr);
  zot_priv_free_k_ex_safe(nullptr, ZOT_SLOT_CURRENT, nullptr);
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_CURRENT), k);
  EXPECT_TRUE(handle.log().lines().empty());
}

TEST(FreeKOfSlot, RecordToKeepIsUnlinked) {
  model_handle handle;
  const zot::k_owner k = k_with_data("bytes");
  zot_priv_set_k(handle.get(), ZOT_SLOT_TMP, k.get());
  zot_priv_free_k_ex_safe(handle.get(), ZOT_SLOT_TMP, k.get());
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_TMP), nullptr);
  EXPECT_STREQ(k->data, "bytes");
  EXPECT_EQ(k_lines(handle),
            lines{"3 72 Unlink temporary K from K = " + address_text(k.get()) + "\n"});
}

TEST(FreeKOfSlot, RecordToKeepComesBeforeTheSearchOfOtherSlots) {
  model_handle handle;
  zot_k *const k = put_k(handle, ZOT_SLOT_CURRENT);
  zot_priv_set_k(handle.get(), ZOT_SLOT_LAST, k);
  zot_priv_free_k_ex_safe(handle.get(), ZOT_SLOT_LAST, k);
  EXPECT_EQ(k_lines(handle), lines{"3 72 Unlink last K from K = " + address_text(k) + "\n"});
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_CURRENT), k);
}

TEST(FreeKOfSlot, RecordOfTwoSlotsIsUnlinkedFromTheReleasedOne) {
  model_handle handle;
  zot_k *const k = put_k(handle, ZOT_SLOT_CURRENT);
  zot_priv_set_k(handle.get(), ZOT_SLOT_LAST, k);
  zot_priv_free_k_ex_safe(handle.get(), ZOT_SLOT_LAST, nullptr);
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_LAST), nullptr);
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_CURRENT), k);
  EXPECT_STREQ(k->data, "bytes");
  EXPECT_EQ(k_lines(handle), lines{"3 72 Unlink last K from current K\n"});
}

TEST(FreeKOfSlot, LastHolderFreesASharedRecord) {
  model_handle handle;
  zot_k *const k = put_k(handle, ZOT_SLOT_CURRENT);
  const std::string where = address_text(k);
  zot_priv_set_k(handle.get(), ZOT_SLOT_LAST, k);
  zot_priv_free_k_ex_safe(handle.get(), ZOT_SLOT_LAST, nullptr);
  handle.log().clear();
  zot_priv_free_k_ex_safe(handle.get(), ZOT_SLOT_CURRENT, nullptr);
  EXPECT_EQ(k_lines(handle),
            (lines{"3 1 Free current K = " + where + "\n", "3 1 Free current K: Done\n"}));
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_CURRENT), nullptr);
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_LAST), nullptr);
}

TEST(FreeKOfSlot, FirstOtherHolderIsNamed) {
  model_handle handle;
  zot_k *const k = put_k(handle, ZOT_SLOT_CURRENT);
  zot_priv_set_k(handle.get(), ZOT_SLOT_TMP, k);
  zot_priv_set_k(handle.get(), ZOT_SLOT_CORRUPTED, k);
  zot_priv_free_k_ex_safe(handle.get(), ZOT_SLOT_CURRENT, nullptr);
  EXPECT_EQ(k_lines(handle), lines{"3 72 Unlink current K from temporary K\n"});
}

TEST(FreeKOfSlot, AnotherRecordToKeepDoesNotHinderTheRelease) {
  model_handle handle;
  const zot::k_owner other = k_with_data("other");
  put_k(handle, ZOT_SLOT_CORRUPTED);
  zot_priv_free_k_ex_safe(handle.get(), ZOT_SLOT_CORRUPTED, other.get());
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_CORRUPTED), nullptr);
  EXPECT_TRUE(handle.log().contains("Free corrupted K: Done\n"));
}

TEST(FreeKOfSlot, RecordWithoutDataIsFreedWithItsRoot) {
  model_handle handle;
  zot_k *const k = zot::make_k().release();
  zot_priv_k_set_root(k, "/a/root");
  zot_priv_set_k(handle.get(), ZOT_SLOT_TMP, k);
  zot_priv_free_k_ex_safe(handle.get(), ZOT_SLOT_TMP, nullptr);
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_TMP), nullptr);
  EXPECT_TRUE(handle.log().contains("Free temporary K: Done\n"));
}

TEST(FreeGpbOfSlot, EmptySlotIsLeftAlone) {
  model_handle handle;
  zot_priv_free_gpb_ex_safe(handle.get(), ZOT_SLOT_CURRENT, nullptr);
  EXPECT_TRUE(handle.log().lines().empty());
}

TEST(FreeGpbOfSlot, InvalidSlotAndMissingHandleAreIgnored) {
  model_handle handle;
  zot_list *const gpbs = put_gpbs(handle, ZOT_SLOT_CURRENT);
  zot_priv_free_gpb_ex_safe(handle.get(), no_slot, nullptr);
  zot_priv_free_gpb_ex_safe(nullptr, ZOT_SLOT_CURRENT, nullptr);
  EXPECT_EQ(zot_priv_get_gpb(handle.get(), ZOT_SLOT_CURRENT), gpbs);
  EXPECT_TRUE(handle.log().lines().empty());
}

TEST(FreeGpbOfSlot, ListToKeepIsUnlinked) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}});
  zot_priv_set_gpb(handle.get(), ZOT_SLOT_TMP, gpbs.get());
  zot_priv_free_gpb_ex_safe(handle.get(), ZOT_SLOT_TMP, gpbs.get());
  EXPECT_EQ(zot_priv_get_gpb(handle.get(), ZOT_SLOT_TMP), nullptr);
  EXPECT_EQ(paths_of(gpbs.get()), lines{"/Wlan/a/1"});
  EXPECT_EQ(gpb_lines(handle),
            lines{"3 80 Unlink temporary GPB from GPB = " + address_text(gpbs.get()) + "\n"});
}

TEST(FreeGpbOfSlot, SharedListIsUnlinkedAfterTheSlotsBeforeAreNamed) {
  model_handle handle;
  zot_list *const gpbs = put_gpbs(handle, ZOT_SLOT_LAST);
  zot_priv_set_gpb(handle.get(), ZOT_SLOT_TMP, gpbs);
  const std::string where = address_text(gpbs);
  zot_priv_free_gpb_ex_safe(handle.get(), ZOT_SLOT_LAST, nullptr);
  EXPECT_EQ(gpb_lines(handle),
            (lines{"3 16 GPB current = " + address_text(nullptr) + "\n",
                   "3 16 GPB last = " + where + "\n", "3 16 GPB temporary = " + where + "\n",
                   "3 80 Unlink last GPB from temporary GPB\n"}));
  EXPECT_EQ(zot_priv_get_gpb(handle.get(), ZOT_SLOT_LAST), nullptr);
  EXPECT_EQ(paths_of(zot_priv_get_gpb(handle.get(), ZOT_SLOT_TMP)), lines{"/Wlan/a/1"});
}

TEST(FreeGpbOfSlot, ListOfOneSlotIsFreedAfterEverySlotIsNamed) {
  model_handle handle;
  const std::string where = address_text(put_gpbs(handle, ZOT_SLOT_LAST));
  const std::string none = address_text(nullptr);
  zot_priv_free_gpb_ex_safe(handle.get(), ZOT_SLOT_LAST, nullptr);
  EXPECT_EQ(gpb_lines(handle),
            (lines{"3 16 GPB current = " + none + "\n", "3 16 GPB last = " + where + "\n",
                   "3 16 GPB temporary = " + none + "\n", "3 16 GPB corrupted = " + none + "\n",
                   "3 1 Free last GPB = " + where + "\n", "3 1 Free last GPB list: Done\n"}));
  EXPECT_EQ(zot_priv_get_gpb(handle.get(), ZOT_SLOT_LAST), nullptr);
}

TEST(FreeGpbOfSlot, EntriesAreFreedBeforeTheHead) {
  model_handle handle;
  const std::string where = address_text(put_gpbs(handle, ZOT_SLOT_LAST));
  zot_priv_free_gpb_ex_safe(handle.get(), ZOT_SLOT_LAST, nullptr);
  const auto entries = handle.log().index_of("free GPB list " + where + ": Done\n");
  const auto head = handle.log().index_of("Free last GPB = " + where + "\n");
  ASSERT_TRUE(entries.has_value() && head.has_value()) << handle.log().dump();
  EXPECT_LT(*entries, *head);
}

TEST(FreeGpbOfSlot, LastHolderFreesASharedList) {
  model_handle handle;
  zot_priv_set_gpb(handle.get(), ZOT_SLOT_LAST, put_gpbs(handle, ZOT_SLOT_CURRENT));
  zot_priv_free_gpb_ex_safe(handle.get(), ZOT_SLOT_LAST, nullptr);
  zot_priv_free_gpb_ex_safe(handle.get(), ZOT_SLOT_CURRENT, nullptr);
  EXPECT_EQ(handle.log().count("free GPB file: /Wlan/a/1\n"), 1U);
  EXPECT_TRUE(handle.log().contains("Free current GPB list: Done\n"));
  EXPECT_EQ(zot_priv_get_gpb(handle.get(), ZOT_SLOT_CURRENT), nullptr);
}

// A handle with a configuration in each of the first three slots.
struct rotation {
  model_handle handle;
  zot_k *current_k = put_k(handle, ZOT_SLOT_CURRENT);
  zot_k *last_k = put_k(handle, ZOT_SLOT_LAST);
  zot_k *new_k = put_k(handle, ZOT_SLOT_TMP);
  zot_list *current_gpbs = put_gpbs(handle, ZOT_SLOT_CURRENT, "current");
  zot_list *last_gpbs = put_gpbs(handle, ZOT_SLOT_LAST, "last");
  zot_list *new_gpbs = put_gpbs(handle, ZOT_SLOT_TMP, "new");

  int run() { return zot_priv_update_cached_mem(handle.get(), new_k, new_gpbs); }
  zot_k *k(uint32_t slot) { return zot_priv_get_k(handle.get(), slot); }
  zot_list *gpbs(uint32_t slot) { return zot_priv_get_gpb(handle.get(), slot); }
  lines logged() { return logged_by(handle.log(), "zot_priv_update_cached_mem"); }
};

std::string three(const char *label, const void *current, const void *last, const void *fresh) {
  return std::string(label) + "cur = " + address_text(current) + ", prev = " + address_text(last) +
         ", tmp = " + address_text(fresh) + "\n";
}

TEST(RotateSlots, MissingHandleIsRefused) {
  rotation test;
  EXPECT_EQ(zot_priv_update_cached_mem(nullptr, test.new_k, test.new_gpbs), ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(test.handle.log().lines().empty());
}

TEST(RotateSlots, MissingKIsRecorded) {
  rotation test;
  EXPECT_EQ(zot_priv_update_cached_mem(test.handle.get(), nullptr, test.new_gpbs),
            ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.get()->err, ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_update_cached_mem]: null input");
  EXPECT_EQ(test.k(ZOT_SLOT_CURRENT), test.current_k);
}

TEST(RotateSlots, MissingListIsRecorded) {
  rotation test;
  EXPECT_EQ(zot_priv_update_cached_mem(test.handle.get(), test.new_k, nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(test.handle.error_text(), "[zot_priv_update_cached_mem]: null input");
  EXPECT_EQ(test.gpbs(ZOT_SLOT_CURRENT), test.current_gpbs);
}

TEST(RotateSlots, NewRecordsBecomeCurrent) {
  rotation test;
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_EQ(test.k(ZOT_SLOT_CURRENT), test.new_k);
  EXPECT_EQ(test.gpbs(ZOT_SLOT_CURRENT), test.new_gpbs);
}

TEST(RotateSlots, FormerCurrentBecomesLast) {
  rotation test;
  test.run();
  EXPECT_EQ(test.k(ZOT_SLOT_LAST), test.current_k);
  EXPECT_EQ(test.gpbs(ZOT_SLOT_LAST), test.current_gpbs);
}

TEST(RotateSlots, FormerLastIsFreed) {
  rotation test;
  const std::string k = address_text(test.last_k);
  const std::string gpbs = address_text(test.last_gpbs);
  test.run();
  EXPECT_TRUE(test.handle.log().contains("Free last K = " + k + "\n"));
  EXPECT_TRUE(test.handle.log().contains("Free last GPB = " + gpbs + "\n"));
  EXPECT_EQ(test.handle.log().count("free GPB file: /Wlan/last/1\n"), 1U);
}

TEST(RotateSlots, TemporarySlotIsNotTouched) {
  rotation test;
  test.run();
  EXPECT_EQ(test.k(ZOT_SLOT_TMP), test.new_k);
  EXPECT_EQ(test.gpbs(ZOT_SLOT_TMP), test.new_gpbs);
}

TEST(RotateSlots, FormerLastThatComesBackIsUnlinked) {
  rotation test;
  EXPECT_EQ(zot_priv_update_cached_mem(test.handle.get(), test.last_k, test.last_gpbs), ZOT_OK);
  EXPECT_EQ(test.k(ZOT_SLOT_CURRENT), test.last_k);
  EXPECT_EQ(test.k(ZOT_SLOT_LAST), test.current_k);
  EXPECT_EQ(test.gpbs(ZOT_SLOT_LAST), test.current_gpbs);
  EXPECT_TRUE(test.handle.log().contains("Unlink last K from current K\n"));
  EXPECT_TRUE(test.handle.log().contains("Unlink last GPB from current GPB\n"));
  EXPECT_STREQ(test.last_k->data, "bytes");
}

TEST(RotateSlots, NothingIsFreedWhenLastHeldTheFormerCurrent) {
  rotation test;
  zot_priv_free_k_ex_safe(test.handle.get(), ZOT_SLOT_LAST, nullptr);
  zot_priv_free_gpb_ex_safe(test.handle.get(), ZOT_SLOT_LAST, nullptr);
  zot_priv_set_k(test.handle.get(), ZOT_SLOT_LAST, test.current_k);
  zot_priv_set_gpb(test.handle.get(), ZOT_SLOT_LAST, test.current_gpbs);
  test.handle.log().clear();
  EXPECT_EQ(test.run(), ZOT_OK);
  EXPECT_FALSE(test.handle.log().contains_part("Free last"));
  EXPECT_EQ(test.k(ZOT_SLOT_LAST), test.current_k);
  EXPECT_EQ(paths_of(test.gpbs(ZOT_SLOT_LAST)), lines{"/Wlan/current/1"});
}

TEST(RotateSlots, FirstConfigurationLeavesLastEmpty) {
  model_handle handle;
  zot_k *const k = put_k(handle, ZOT_SLOT_TMP);
  zot_list *const gpbs = put_gpbs(handle, ZOT_SLOT_TMP);
  EXPECT_EQ(zot_priv_update_cached_mem(handle.get(), k, gpbs), ZOT_OK);
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_CURRENT), k);
  EXPECT_EQ(zot_priv_get_k(handle.get(), ZOT_SLOT_LAST), nullptr);
  EXPECT_EQ(zot_priv_get_gpb(handle.get(), ZOT_SLOT_LAST), nullptr);
}

TEST(RotateSlots, SlotsAreLoggedBeforeAndAfter) {
  rotation test;
  const std::string k_before = three("3 1 Before K: ", test.current_k, test.last_k, test.new_k);
  const std::string gpbs_before =
      three("3 1 GPB : ", test.current_gpbs, test.last_gpbs, test.new_gpbs);
  test.run();
  EXPECT_EQ(test.logged(),
            (lines{k_before, gpbs_before, "3 1 Update Cached conf. memory: Done\n",
                   three("3 128 After K: ", test.new_k, test.current_k, test.new_k),
                   three("3 128 After GPB: ", test.new_gpbs, test.current_gpbs, test.new_gpbs)}));
}

TEST(RotateSlots, ReleaseIsLoggedBetweenTheTwo) {
  rotation test;
  test.run();
  const auto released = test.handle.log().index_of("Free last K: Done\n");
  const auto done = test.handle.log().index_of("Update Cached conf. memory: Done\n");
  ASSERT_TRUE(released.has_value() && done.has_value());
  EXPECT_LT(*released, *done);
}

}  // namespace
