// SPDX-License-Identifier: Apache-2.0
#include "zot_list.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

namespace {

struct item {
  int key = 0;
  int place = 0;
  zot_list node = {};
};

item &item_of(zot_list *node) {
  return *reinterpret_cast<item *>(reinterpret_cast<char *>(node) - offsetof(item, node));
}

struct comparisons {
  size_t all = 0;
  size_t same_node = 0;
};

int by_key(void *priv, zot_list *a, zot_list *b) {
  auto *const count = static_cast<comparisons *>(priv);
  ++count->all;
  count->same_node += a == b ? 1 : 0;
  return item_of(a).key - item_of(b).key;
}

// Items in the order of the vector of keys, linked below one head.
class item_list {
 public:
  explicit item_list(const std::vector<int> &keys) : items_(keys.size()) {
    zot_list_init(&head_);
    for (size_t i = 0; i < keys.size(); ++i) {
      items_[i].key = keys[i];
      items_[i].place = static_cast<int>(i);
      list_add_tail(&head_, &items_[i].node);
    }
  }

  zot_list *head() { return &head_; }
  zot_list *node(size_t i) { return &items_[i].node; }
  comparisons sort() {
    comparisons count;
    zot_list_sort(&count, &head_, by_key);
    return count;
  }
  std::vector<int> keys() {
    std::vector<int> found;
    for (zot_list *node = head_.next; node != &head_; node = node->next) {
      found.push_back(item_of(node).key);
    }
    return found;
  }
  std::vector<int> keys_backwards() {
    std::vector<int> found;
    for (zot_list *node = head_.prev; node != &head_; node = node->prev) {
      found.push_back(item_of(node).key);
    }
    return found;
  }
  bool is_stable() {
    for (zot_list *node = head_.next; node->next != &head_; node = node->next) {
      const item &here = item_of(node);
      const item &after = item_of(node->next);
      if (here.key == after.key && here.place > after.place) {
        return false;
      }
    }
    return true;
  }

 private:
  zot_list head_{};
  std::vector<item> items_;
};

std::vector<int> rising(int count) {
  std::vector<int> keys(static_cast<size_t>(count));
  std::iota(keys.begin(), keys.end(), 0);
  return keys;
}

std::vector<int> falling(int count) {
  std::vector<int> keys = rising(count);
  std::ranges::reverse(keys);
  return keys;
}

TEST(List, IsEmptyAfterInit) {
  zot_list head{};
  zot_list_init(&head);
  EXPECT_EQ(head.next, &head);
  EXPECT_EQ(head.prev, &head);
  EXPECT_TRUE(zot_list_is_empty(&head));
}

TEST(List, IsNotEmptyWithANode) {
  item_list list({1});
  EXPECT_FALSE(zot_list_is_empty(list.head()));
}

TEST(List, AddInsertsAtTheFront) {
  item_list list({1, 2});
  item added{.key = 3};
  zot_list_add(list.head(), &added.node);
  EXPECT_EQ(list.keys(), (std::vector{3, 1, 2}));
  EXPECT_EQ(list.keys_backwards(), (std::vector{2, 1, 3}));
}

TEST(List, AddTailInsertsAtTheEnd) {
  item_list list({1, 2});
  item added{.key = 3};
  list_add_tail(list.head(), &added.node);
  EXPECT_EQ(list.keys(), (std::vector{1, 2, 3}));
  EXPECT_EQ(list.keys_backwards(), (std::vector{3, 2, 1}));
}

TEST(List, CheckedAddInsertsAtTheFront) {
  item_list list({1, 2});
  item added{.key = 3};
  EXPECT_EQ(zot_list_add_node(list.head(), &added.node), 0);
  EXPECT_EQ(list.keys(), (std::vector{3, 1, 2}));
}

TEST(List, CheckedAddTailInsertsAtTheEnd) {
  item_list list({1, 2});
  item added{.key = 3};
  EXPECT_EQ(zot_list_add_node_tail(list.head(), &added.node), 0);
  EXPECT_EQ(list.keys(), (std::vector{1, 2, 3}));
}

TEST(List, CheckedAddsRefuseAMissingArgument) {
  item_list list({1});
  EXPECT_EQ(zot_list_add_node(nullptr, list.node(0)), -1);
  EXPECT_EQ(zot_list_add_node(list.head(), nullptr), -1);
  EXPECT_EQ(zot_list_add_node_tail(nullptr, list.node(0)), -1);
  EXPECT_EQ(zot_list_add_node_tail(list.head(), nullptr), -1);
  EXPECT_EQ(list.keys(), std::vector{1});
}

TEST(List, DelUnlinksTheNode) {
  item_list list({1, 2, 3});
  list_del(list.node(1));
  EXPECT_EQ(list.keys(), (std::vector{1, 3}));
  EXPECT_EQ(list.keys_backwards(), (std::vector{3, 1}));
}

TEST(List, DelPoisonsTheLinks) {
  item_list list({1});
  list_del(list.node(0));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(list.node(0)->next), 0x100100U);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(list.node(0)->prev), 0x200200U);
}

TEST(List, RemoveUnlinksAndPoisons) {
  item_list list({1, 2});
  zot_list_remove(list.node(0));
  EXPECT_EQ(list.keys(), std::vector{2});
  EXPECT_EQ(reinterpret_cast<uintptr_t>(list.node(0)->next), 0x100100U);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(list.node(0)->prev), 0x200200U);
}

TEST(Sort, LeavesAnEmptyListValid) {
  item_list list({});
  EXPECT_EQ(list.sort().all, 0U);
  EXPECT_TRUE(zot_list_is_empty(list.head()));
  EXPECT_EQ(list.head()->prev, list.head());
}

TEST(Sort, LeavesASingleNodeValid) {
  item_list list({7});
  list.sort();
  EXPECT_EQ(list.keys(), std::vector{7});
  EXPECT_EQ(list.keys_backwards(), std::vector{7});
  EXPECT_EQ(list.node(0)->next, list.head());
}

TEST(Sort, KeepsTheOrderOfEqualKeys) {
  item_list list({2, 1, 2, 1, 0, 2, 1, 0, 0, 1, 2});
  list.sort();
  EXPECT_EQ(list.keys(), (std::vector{0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2}));
  EXPECT_TRUE(list.is_stable());
}

TEST(Sort, HandsTheFirstArgumentThrough) {
  static void *seen = nullptr;
  item_list list({2, 1});
  int mark = 0;
  zot_list_sort(&mark, list.head(), [](void *priv, zot_list *, zot_list *) {
    seen = priv;
    return 0;
  });
  EXPECT_EQ(seen, &mark);
}

class SortOfLength : public testing::TestWithParam<int> {};

TEST_P(SortOfLength, OrdersARandomListBothWays) {
  std::mt19937 random(static_cast<unsigned>(GetParam()));
  std::vector<int> keys(static_cast<size_t>(GetParam()));
  std::ranges::generate(keys, [&random] { return static_cast<int>(random() % 97U); });
  item_list list(keys);
  list.sort();
  std::ranges::sort(keys);
  EXPECT_EQ(list.keys(), keys);
  std::ranges::reverse(keys);
  EXPECT_EQ(list.keys_backwards(), keys);
  EXPECT_TRUE(list.is_stable());
}

INSTANTIATE_TEST_SUITE_P(AroundPowersOfTwo, SortOfLength,
                         testing::Values(2, 3, 4, 5, 7, 8, 9, 63, 64, 65, 300, 1000, 4097));

// The last merge of 300 falling keys joins a run of 256 with one of 44. The 44 come first, and the
// 256 follow as the remainder.
TEST(Sort, TouchesEvery256thNodeOfTheRemainder) {
  item_list list(falling(300));
  EXPECT_EQ(list.sort().same_node, 1U);
  EXPECT_EQ(list.keys(), rising(300));
}

// Of 300 rising keys the 256 come first, one by one, and a remainder of 44 follows.
TEST(Sort, TouchesNoNodeOfAShortRemainder) {
  item_list list(rising(300));
  EXPECT_EQ(list.sort().same_node, 0U);
}

// 1024 and 276 nodes: four times 256 nodes follow.
TEST(Sort, TouchesOnceForEach256NodesOfTheRemainder) {
  item_list list(falling(1300));
  EXPECT_EQ(list.sort().same_node, 4U);
}

TEST(Sort, ComparesAtMostNLogNTimes) {
  item_list list(falling(4096));
  EXPECT_LE(list.sort().all, 4096U * 12U + 16U);
}

// More than 2^20 nodes fill the levels: the last usable level keeps absorbing.
TEST(Sort, OrdersAListThatFillsEveryLevel) {
  constexpr int count = (1 << 21) + 3;
  item_list list(falling(count));
  list.sort();
  EXPECT_EQ(list.keys(), rising(count));
}

TEST(GpbRange, VisitsTheEntriesInOrder) {
  zot_gpb head{};
  zot_gpb first{};
  zot_gpb second{};
  first.version = 1;
  second.version = 2;
  zot_list_init(&head.node);
  list_add_tail(&head.node, &first.node);
  list_add_tail(&head.node, &second.node);
  std::vector<uint64_t> versions;
  for (const zot_gpb &gpb : zot::gpb_range(&head.node)) {
    versions.push_back(gpb.version);
  }
  EXPECT_EQ(versions, (std::vector<uint64_t>{1, 2}));
}

TEST(GpbRange, OfNoListIsEmpty) {
  zot_list *const none = nullptr;
  const auto range = zot::gpb_range(none);
  EXPECT_TRUE(range.begin() == range.end());
}

TEST(RetDataOf, FindsTheEntryAroundANode) {
  zot_ret_data entry{};
  EXPECT_EQ(&zot::ret_data_of(&entry.node), &entry);
}

TEST(GpbOf, FindsTheEntryAroundANode) {
  zot_gpb entry{};
  EXPECT_EQ(&zot::gpb_of(&entry.node), &entry);
}

}  // namespace
