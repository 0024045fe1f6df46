// SPDX-License-Identifier: Apache-2.0
#include "tools/element/applied.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>

#include "tools/model/judge.hpp"

namespace zot::test {
namespace {
using zotconf::change;

// A slot of a handle, built from entries with category, key and bytes.
class held {
 public:
  explicit held(std::string k) : bytes_(std::move(k)) {
    k_.data = bytes_.data();
    k_.data_len = static_cast<std::uint32_t>(bytes_.size());
    gpbs_.next = gpbs_.prev = &gpbs_;
  }
  held(const held &) = delete;
  held &operator=(const held &) = delete;
  ~held() = default;

  held &with(zot_category category, const char *key, const std::string &bytes) {
    zot_gpb &gpb = entries_.emplace_back();
    gpb.category = category;
    std::snprintf(gpb.key, sizeof gpb.key, "%s", key);
    std::snprintf(gpb.checksum, sizeof gpb.checksum, "%s", zotconf::sha256_text(bytes).c_str());
    gpb.node.prev = gpbs_.prev;
    gpb.node.next = &gpbs_;
    gpbs_.prev->next = &gpb.node;
    gpbs_.prev = &gpb.node;
    return *this;
  }
  zot_slot slot() { return {&k_, &gpbs_}; }

 private:
  std::string bytes_;
  zot_k k_{};
  zot_list gpbs_{};
  std::deque<zot_gpb> entries_;
};

// A list as a get returns it. Its owner frees it in the same way.
class returned {
 public:
  returned() : list_(static_cast<zot_list *>(std::calloc(1, sizeof(zot_list)))) {
    list_->next = list_->prev = list_;
  }
  returned &with(zot_category category, const char *key, const char *bytes, std::uint32_t stat) {
    auto *const entry = static_cast<zot_ret_data *>(std::calloc(1, sizeof(zot_ret_data)));
    entry->category = category;
    std::snprintf(entry->key, sizeof entry->key, "%s", key);
    entry->data = bytes;
    entry->size = bytes != nullptr ? static_cast<std::uint32_t>(std::strlen(bytes)) : 0;
    entry->stat = stat;
    entry->node.prev = list_->prev;
    entry->node.next = list_;
    list_->prev->next = &entry->node;
    list_->prev = &entry->node;
    return *this;
  }
  zotconf::entries list() { return {list_, zotconf::status(ZOT_OK)}; }

 private:
  zot_list *list_;
};

using told = std::vector<std::pair<std::string, change>>;

told names_of(const std::vector<zotconf::change_line> &lines) {
  told all;
  for (const zotconf::change_line &line : lines) {
    all.emplace_back(line.category + "/" + line.key, line.what);
  }
  return all;
}

TEST(Applied, IsWhatHasTheSameK) {
  held first("K one");
  held second("K two");
  const zotconf::applied_configuration applied(first.slot(), zotconf::category_set::all());
  EXPECT_TRUE(applied.is_in(first.slot()));
  EXPECT_FALSE(applied.is_in(second.slot()));
  EXPECT_FALSE(applied.is_in({nullptr, nullptr}));
}

TEST(Applied, IsNothingForAnEmptySlot) {
  const zotconf::applied_configuration applied({nullptr, nullptr}, zotconf::category_set::all());
  EXPECT_TRUE(applied.is_in({nullptr, nullptr}));
  const zotconf::entries whole = returned().with(ZOT_CAT_WLAN, "a", "1", ZOT_STAT_FULL).list();
  EXPECT_EQ(names_of(applied.changes_to(whole)), (told{{"Wlan/a", change::added}}));
}

TEST(Applied, TellsWhatChangesByCategoryAndKey) {
  held before("K");
  before.with(ZOT_CAT_WLAN, "gone", "1")
      .with(ZOT_CAT_WLAN, "kept", "2")
      .with(ZOT_CAT_WLAN, "other", "3")
      .with(ZOT_CAT_ZONE, "kept", "4");
  const zotconf::applied_configuration applied(before.slot(), zotconf::category_set::all());
  const zotconf::entries whole = returned()
                                     .with(ZOT_CAT_ZONE, "kept", "4", ZOT_STAT_FULL)
                                     .with(ZOT_CAT_WLAN, "other", "5", ZOT_STAT_FULL)
                                     .with(ZOT_CAT_WLAN, "kept", "2", ZOT_STAT_FULL)
                                     .with(ZOT_CAT_WLAN, "added", "6", ZOT_STAT_FULL)
                                     .list();
  told all = names_of(applied.changes_to(whole));
  std::ranges::sort(all);
  EXPECT_EQ(all, (told{{"Wlan/added", change::added},
                       {"Wlan/gone", change::deleted},
                       {"Wlan/kept", change::unchanged},
                       {"Wlan/other", change::modified},
                       {"Zone/kept", change::unchanged}}));
}

TEST(Applied, TakesDeletedEntriesForGone) {
  held before("K");
  before.with(ZOT_CAT_WLAN, "gone", "1");
  const zotconf::applied_configuration applied(before.slot(), zotconf::category_set::all());
  const zotconf::entries whole =
      returned().with(ZOT_CAT_WLAN, "gone", nullptr, ZOT_STAT_DELETED).list();
  EXPECT_EQ(names_of(applied.changes_to(whole)), (told{{"Wlan/gone", change::deleted}}));
}

TEST(Applied, KnowsOnlyTheCategoriesOfTheCommand) {
  held before("K");
  before.with(ZOT_CAT_WLAN, "a", "1").with(ZOT_CAT_ZONE, "b", "2");
  const zotconf::applied_configuration applied(before.slot(), {ZOT_CAT_ZONE});
  EXPECT_EQ(names_of(applied.changes_to(returned().list())), (told{{"Zone/b", change::deleted}}));
}

}  // namespace
}  // namespace zot::test
