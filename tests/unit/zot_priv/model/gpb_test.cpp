// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/zot_priv/model/model_records.hpp"
#include "utilities/owner.hpp"

namespace {

using namespace zot::test::model;

using lines = std::vector<std::string>;

class gpb_record {
 public:
  gpb_record(const std::string &path, const std::string &checksum, const std::string &key)
      : gpb_(zot_priv_gpb_new(path.c_str(), 5, ZOT_CAT_WLAN, checksum.c_str(), key.c_str(), 7)) {}
  explicit gpb_record(const entry &from) : gpb_(new_gpb(from)) {}
  gpb_record() : gpb_(static_cast<zot_gpb *>(std::calloc(1, sizeof(zot_gpb)))) {}
  gpb_record(const gpb_record &) = delete;
  gpb_record &operator=(const gpb_record &) = delete;
  ~gpb_record() {
    std::free(gpb_->path);
    std::free(gpb_->content);
    std::free(gpb_);
  }
  zot_gpb *operator->() { return gpb_; }
  zot_gpb *get() { return gpb_; }

 private:
  zot_gpb *gpb_;
};

TEST(NewGpb, HoldsWhatItWasGiven) {
  const std::string checksum(64, 'c');
  gpb_record gpb("/Wlan/guest/7", checksum, "guest");
  EXPECT_STREQ(gpb->path, "/Wlan/guest/7");
  EXPECT_EQ(gpb->size, 5U);
  EXPECT_EQ(gpb->category, ZOT_CAT_WLAN);
  EXPECT_EQ(gpb->checksum, checksum);
  EXPECT_STREQ(gpb->key, "guest");
  EXPECT_EQ(gpb->version, 7U);
}

TEST(NewGpb, CountsTheKey) {
  gpb_record gpb("/Wlan/guest/7", "", "guest");
  EXPECT_EQ(gpb->key_len, 5U);
}

TEST(NewGpb, HasNoContentAndNoMark) {
  gpb_record gpb("/Wlan/guest/7", "", "guest");
  EXPECT_EQ(gpb->content, nullptr);
  EXPECT_EQ(gpb->stat, 0U);
}

TEST(NewGpb, HoldsACopyOfThePath) {
  std::string path = "/Wlan/guest/7";
  gpb_record gpb(path, "", "guest");
  path.assign("changed since");
  EXPECT_STREQ(gpb->path, "/Wlan/guest/7");
}

TEST(NewGpb, KeyOf60CharactersIsCutTo52) {
  const std::string key(60, 'k');
  gpb_record gpb("/Wlan/k/7", "", key);
  EXPECT_EQ(gpb->key, key.substr(0, 52));
  EXPECT_EQ(gpb->key_len, 52U);
}

TEST(NewGpb, KeyOf52CharactersIsKept) {
  const std::string key(52, 'k');
  gpb_record gpb("/Wlan/k/7", "", key);
  EXPECT_EQ(gpb->key, key);
}

TEST(NewGpb, ChecksumIsCutTo64Characters) {
  const std::string checksum(70, 'c');
  gpb_record gpb("/Wlan/guest/7", checksum, "guest");
  EXPECT_EQ(gpb->checksum, checksum.substr(0, 64));
}

TEST(NewGpb, PathIsCutTo4096Characters) {
  const std::string path(5000, 'p');
  gpb_record gpb(path, "", "guest");
  EXPECT_EQ(gpb->path, path.substr(0, 4096));
}

struct comparison {
  const char *name;
  entry a;
  entry b;
  int sign;
  int kind;
};

int sign_of(int value) {
  return (value > 0) - (value < 0);
}

class CompareGpb : public testing::TestWithParam<comparison> {};

TEST_P(CompareGpb, OrdersAndClassifies) {
  gpb_record a(GetParam().a);
  gpb_record b(GetParam().b);
  zot_gpb_cmp out{};
  EXPECT_EQ(sign_of(zot_priv_cmp_gpb(a.get(), b.get(), &out)), GetParam().sign);
  EXPECT_EQ(sign_of(out.result), GetParam().sign);
  EXPECT_EQ(out.kind, GetParam().kind);
}

TEST_P(CompareGpb, OrdersTheOtherWayRound) {
  gpb_record a(GetParam().a);
  gpb_record b(GetParam().b);
  zot_gpb_cmp out{};
  EXPECT_EQ(sign_of(zot_priv_cmp_gpb(b.get(), a.get(), &out)), -GetParam().sign);
  EXPECT_EQ(out.kind, GetParam().kind);
}

constexpr uint64_t above_half = (uint64_t{1} << 63) + 1;

INSTANTIATE_TEST_SUITE_P(
    Model, CompareGpb,
    testing::Values(
        comparison{"Equal", {ZOT_CAT_WLAN, "a", 1}, {ZOT_CAT_WLAN, "a", 1}, 0, 0},
        comparison{"Category", {ZOT_CAT_ZONE, "a", 1}, {ZOT_CAT_WLAN, "b", 2}, 1, 1},
        comparison{"Key", {ZOT_CAT_WLAN, "a", 2}, {ZOT_CAT_WLAN, "b", 1}, -1, 2},
        comparison{"KeyLength", {ZOT_CAT_WLAN, "a", 2}, {ZOT_CAT_WLAN, "ab", 1}, -1, 2},
        comparison{"KeyCase", {ZOT_CAT_WLAN, "b", 1}, {ZOT_CAT_WLAN, "C", 1}, 1, 2},
        comparison{"Version", {ZOT_CAT_WLAN, "a", 9}, {ZOT_CAT_WLAN, "a", 10}, -1, 3},
        comparison{
            "UnsignedVersion", {ZOT_CAT_WLAN, "a", above_half}, {ZOT_CAT_WLAN, "a", 1}, 1, 3}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(CompareGpbEntries, NeedNoOutput) {
  gpb_record a(entry{ZOT_CAT_WLAN, "a", 1});
  gpb_record b(entry{ZOT_CAT_WLAN, "b", 1});
  EXPECT_LT(zot_priv_cmp_gpb(a.get(), b.get(), nullptr), 0);
}

TEST(CheckDuplicateGpb, TwoVersionsOfOneObjectAreRefused) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}, {ZOT_CAT_WLAN, "a", 2}});
  EXPECT_EQ(zot_priv_chk_dup_gpb(handle.get(), gpbs.get()), ZOT_ERR_CORRUPTED);
  EXPECT_EQ(handle.get()->err, ZOT_ERR_CORRUPTED);
  EXPECT_EQ(handle.error_text(), "duplicate entry in K");
}

TEST(CheckDuplicateGpb, LaterPairIsFound) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_AP, "a", 1},
                                           {ZOT_CAT_WLAN, "a", 1},
                                           {ZOT_CAT_ZONE, "a", 1},
                                           {ZOT_CAT_ZONE, "a", 2}});
  EXPECT_EQ(zot_priv_chk_dup_gpb(handle.get(), gpbs.get()), ZOT_ERR_CORRUPTED);
}

TEST(CheckDuplicateGpb, OnePathListedTwiceIsNoDuplicate) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}, {ZOT_CAT_WLAN, "a", 1}});
  EXPECT_EQ(zot_priv_chk_dup_gpb(handle.get(), gpbs.get()), ZOT_OK);
}

TEST(CheckDuplicateGpb, OneKeyInTwoCategoriesIsNoDuplicate) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}, {ZOT_CAT_ZONE, "a", 2}});
  EXPECT_EQ(zot_priv_chk_dup_gpb(handle.get(), gpbs.get()), ZOT_OK);
}

TEST(CheckDuplicateGpb, EmptyListHasNone) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {});
  EXPECT_EQ(zot_priv_chk_dup_gpb(handle.get(), gpbs.get()), ZOT_OK);
}

TEST(CopyGpb, MissingOrSameRecordIsRefused) {
  model_handle handle;
  gpb_record gpb(entry{ZOT_CAT_WLAN, "a", 1});
  EXPECT_EQ(zot_priv_gpb_list_cpy(handle.get(), nullptr, gpb.get()), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_gpb_list_cpy(handle.get(), gpb.get(), nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_gpb_list_cpy(handle.get(), gpb.get(), gpb.get()), ZOT_ERR_NULL_INPUT);
}

TEST(CopyGpb, RefusalIsRecorded) {
  model_handle handle;
  zot_priv_gpb_list_cpy(handle.get(), nullptr, nullptr);
  EXPECT_EQ(handle.get()->err, ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(handle.error_text(), "[zot_priv_gpb_list_cpy]: null input");
}

TEST(CopyGpb, SourceWithoutPathIsRefused) {
  model_handle handle;
  gpb_record source;
  gpb_record copy;
  EXPECT_EQ(zot_priv_gpb_list_cpy(handle.get(), copy.get(), source.get()), ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(handle.get()->err, ZOT_ERR_WRONG_INPUT);
  EXPECT_EQ(handle.error_text(), "[zot_priv_gpb_list_cpy]: src path is null");
}

TEST(CopyGpb, CopiesEveryFieldButTheContent) {
  model_handle handle;
  gpb_record source(entry{ZOT_CAT_WLAN, "a", 12, ZOT_STAT_ADDED, "some bytes"});
  source->content = ::strdup("some bytes");
  gpb_record copy;
  EXPECT_EQ(zot_priv_gpb_list_cpy(handle.get(), copy.get(), source.get()), ZOT_OK);
  EXPECT_STREQ(copy->path, "/Wlan/a/12");
  EXPECT_STREQ(copy->checksum, source->checksum);
  EXPECT_EQ(copy->size, 10U);
  EXPECT_EQ(copy->version, 12U);
  EXPECT_EQ(copy->category, ZOT_CAT_WLAN);
  EXPECT_EQ(copy->stat, ZOT_STAT_ADDED);
  EXPECT_EQ(copy->key_len, 1U);
  EXPECT_STREQ(copy->key, "a");
  EXPECT_EQ(copy->content, nullptr);
}

TEST(CopyGpb, HoldsAPathOfItsOwn) {
  model_handle handle;
  gpb_record source(entry{ZOT_CAT_WLAN, "a", 1});
  gpb_record copy;
  zot_priv_gpb_list_cpy(handle.get(), copy.get(), source.get());
  EXPECT_NE(copy->path, source->path);
}

TEST(CopyGpb, StaysOutOfTheSourcesList) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}});
  gpb_record copy;
  zot_priv_gpb_list_cpy(handle.get(), copy.get(), &entry_at(gpbs.get(), 0));
  EXPECT_EQ(copy->node.next, nullptr);
}

TEST(CopyGpb, ClearsTheCode) {
  model_handle handle;
  mark_status(handle.get());
  gpb_record source(entry{ZOT_CAT_WLAN, "a", 1});
  gpb_record copy;
  zot_priv_gpb_list_cpy(handle.get(), copy.get(), source.get());
  EXPECT_EQ(handle.get()->err, ZOT_OK);
  EXPECT_EQ(handle.error_text(), "an earlier text");
}

TEST(FreeGpb, MissingHandleOrRecordIsRefused) {
  model_handle handle;
  gpb_record gpb(entry{ZOT_CAT_WLAN, "a", 1});
  mark_status(handle.get());
  EXPECT_EQ(zot_priv_free_gpb(nullptr, gpb.get()), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_free_gpb(handle.get(), nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(has_marked_status(handle.get()));
}

TEST(FreeGpb, NamesPathAndRecord) {
  model_handle handle;
  zot_gpb *const gpb = new_gpb({ZOT_CAT_WLAN, "a", 1});
  const std::string where = address_text(gpb);
  EXPECT_EQ(zot_priv_free_gpb(handle.get(), gpb), ZOT_OK);
  EXPECT_EQ(logged_by(handle.log(), "zot_priv_free_gpb"),
            (lines{"3 128 free GPB file: /Wlan/a/1\n", "3 128 free GPB: " + where + ": Done\n"}));
}

TEST(FreeGpb, RecordWithoutPathIsNamedByItsAddressOnly) {
  model_handle handle;
  zot_gpb *const gpb = zot::make_zeroed<zot_gpb>().release();
  const std::string where = address_text(gpb);
  zot_priv_free_gpb(handle.get(), gpb);
  EXPECT_EQ(logged_by(handle.log(), "zot_priv_free_gpb"),
            lines{"3 128 free GPB: " + where + ": Done\n"});
}

TEST(FreeGpb, LeavesTheStatusAlone) {
  model_handle handle;
  mark_status(handle.get());
  zot_priv_free_gpb(handle.get(), new_gpb({ZOT_CAT_WLAN, "a", 1}));
  EXPECT_TRUE(has_marked_status(handle.get()));
}

TEST(FreeGpb, LeavesContentOfSizeZeroAlone) {
  model_handle handle;
  zot_gpb *const gpb = new_gpb({ZOT_CAT_WLAN, "a", 1, 0, ""});
  char content[] = "not from the allocator";
  gpb->content = content;
  EXPECT_EQ(zot_priv_free_gpb(handle.get(), gpb), ZOT_OK);
  EXPECT_STREQ(content, "not from the allocator");
}

TEST(FreeGpbList, MissingHandleOrListIsRefused) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}});
  mark_status(handle.get());
  EXPECT_EQ(zot_priv_free_gpb_list(nullptr, gpbs.get()), ZOT_ERR_NULL_INPUT);
  EXPECT_EQ(zot_priv_free_gpb_list(handle.get(), nullptr), ZOT_ERR_NULL_INPUT);
  EXPECT_TRUE(has_marked_status(handle.get()));
  EXPECT_EQ(paths_of(gpbs.get()), lines{"/Wlan/a/1"});
}

TEST(FreeGpbList, LeavesTheHeadEmpty) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}, {ZOT_CAT_WLAN, "b", 1}});
  EXPECT_EQ(zot_priv_free_gpb_list(handle.get(), gpbs.get()), ZOT_OK);
  EXPECT_EQ(gpbs->next, gpbs.get());
  EXPECT_EQ(gpbs->prev, gpbs.get());
}

TEST(FreeGpbList, FreesEveryRecordInOrder) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}, {ZOT_CAT_WLAN, "b", 1}});
  zot_priv_free_gpb_list(handle.get(), gpbs.get());
  const auto first = handle.log().index_of("free GPB file: /Wlan/a/1\n");
  const auto second = handle.log().index_of("free GPB file: /Wlan/b/1\n");
  ASSERT_TRUE(first.has_value() && second.has_value()) << handle.log().dump();
  EXPECT_LT(*first, *second);
}

TEST(FreeGpbList, NamesTheList) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}});
  zot_priv_free_gpb_list(handle.get(), gpbs.get());
  EXPECT_EQ(logged_by(handle.log(), "zot_priv_free_gpb_list"),
            lines{"3 64 free GPB list " + address_text(gpbs.get()) + ": Done\n"});
}

TEST(FreeGpbList, EmptyListWritesNoLogLine) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {});
  EXPECT_EQ(zot_priv_free_gpb_list(handle.get(), gpbs.get()), ZOT_OK);
  EXPECT_TRUE(handle.log().lines().empty()) << handle.log().dump();
}

TEST(FreeMarkedList, ClearsTheHandlesReference) {
  model_handle handle;
  handle.get()->ret.list = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1}}).release();
  zot_priv_free_ret_gpb_list(handle.get());
  EXPECT_EQ(handle.get()->ret.list, nullptr);
  EXPECT_TRUE(handle.log().contains("free GPB file: /Wlan/a/1\n"));
}

TEST(FreeMarkedList, KeepsTheRoot) {
  model_handle handle;
  handle.get()->ret.root = handle.get()->conf_root;
  handle.get()->ret.list = list_of(handle.get(), {}).release();
  zot_priv_free_ret_gpb_list(handle.get());
  EXPECT_EQ(handle.get()->ret.root, handle.get()->conf_root);
}

TEST(FreeMarkedList, WithoutAListDoesNothing) {
  model_handle handle;
  zot_priv_free_ret_gpb_list(handle.get());
  EXPECT_TRUE(handle.log().lines().empty());
}

TEST(PruneMarkedList, DropsTheDeletedEntriesAndMarksTheOthersUnchanged) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1, ZOT_STAT_DELETED},
                                           {ZOT_CAT_WLAN, "b", 1, ZOT_STAT_ADDED},
                                           {ZOT_CAT_WLAN, "c", 1, ZOT_STAT_MODIFIED},
                                           {ZOT_CAT_WLAN, "d", 1, ZOT_STAT_DELETED},
                                           {ZOT_CAT_WLAN, "e", 1, ZOT_STAT_UNCHANGED}});
  zot_priv_prune_deleted_gpb(handle.get(), gpbs.get());
  EXPECT_EQ(marks_of(gpbs.get()), (lines{"/Wlan/b/1 0x02", "/Wlan/c/1 0x02", "/Wlan/e/1 0x02"}));
}

TEST(PruneMarkedList, FreesTheDeletedEntries) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1, ZOT_STAT_DELETED}});
  zot_priv_prune_deleted_gpb(handle.get(), gpbs.get());
  EXPECT_TRUE(zot_list_is_empty(gpbs.get()));
  EXPECT_TRUE(handle.log().contains("free GPB file: /Wlan/a/1\n"));
}

TEST(PruneMarkedList, LogsNothingOfItsOwn) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1, ZOT_STAT_DELETED},
                                           {ZOT_CAT_WLAN, "b", 1, ZOT_STAT_ADDED}});
  zot_priv_prune_deleted_gpb(handle.get(), gpbs.get());
  EXPECT_EQ(handle.log().lines().size(), logged_by(handle.log(), "zot_priv_free_gpb").size());
}

TEST(PruneMarkedList, KeepsTheContentOfTheOthers) {
  model_handle handle;
  const auto gpbs = list_of(handle.get(), {{ZOT_CAT_WLAN, "a", 1, ZOT_STAT_ADDED, "bytes"}});
  entry_at(gpbs.get(), 0).content = ::strdup("bytes");
  zot_priv_prune_deleted_gpb(handle.get(), gpbs.get());
  EXPECT_STREQ(entry_at(gpbs.get(), 0).content, "bytes");
}

}  // namespace
