// SPDX-License-Identifier: Apache-2.0
#include "zot_list.hpp"

#include <array>
#include <cstdint>

#include "utilities/own_names.hpp"

namespace {

// Addresses that no process maps, so that following the links of a removed node faults.
constexpr uintptr_t removed_next = 0x100100;
constexpr uintptr_t removed_prev = 0x200200;

void link_between(zot_list *before, zot_list *node, zot_list *after) {
  node->prev = before;
  node->next = after;
  before->next = node;
  after->prev = node;
}

// The caller's order. Equal nodes keep the order in which they came.
class list_order {
 public:
  list_order(void *priv, zot_list_cmp cmp) : priv_(priv), cmp_(cmp) {}

  // Removes the node that comes next from the front of one of two runs. Neither run may be empty.
  zot_list *take_front(zot_list *&earlier, zot_list *&later) const {
    zot_list *&run = cmp_(priv_, earlier, later) > 0 ? later : earlier;
    zot_list *const front = run;
    run = front->next;
    return front;
  }

  // Calls the comparator although nothing is left to compare: one that yields the processor can do
  // so here.
  void touch(zot_list *node) const { cmp_(priv_, node, node); }

 private:
  void *priv_;
  zot_list_cmp cmp_;
};

zot_list *merge(const list_order &order, zot_list *earlier, zot_list *later) {
  zot_list start{};
  zot_list *last = &start;
  while (earlier != nullptr && later != nullptr) {
    last->next = order.take_front(earlier, later);
    last = last->next;
  }
  last->next = earlier != nullptr ? earlier : later;
  return start.next;
}

// Sorted runs that wait to be merged with a run of the same size. The run at level n holds 2^n
// nodes; only the highest usable level takes all the nodes of a longer list.
class run_levels {
 public:
  explicit run_levels(const list_order &order) : order_(order) {}

  void add(zot_list *run) {
    size_t level = 0;
    for (; runs_[level] != nullptr; ++level) {
      run = merge(order_, runs_[level], run);
      runs_[level] = nullptr;
    }
    if (level > highest_) {
      level = level < last_level ? level : last_level - 1;
      highest_ = level;
    }
    runs_[level] = run;
  }

  // Merges all runs below the highest level, which hold the later nodes, into one.
  zot_list *merge_lower() {
    zot_list *merged = nullptr;
    for (size_t level = 0; level < highest_; ++level) {
      if (runs_[level] != nullptr) {
        merged = merge(order_, runs_[level], merged);
      }
    }
    return merged;
  }

  [[nodiscard]] zot_list *highest() const { return runs_[highest_]; }

 private:
  static constexpr size_t last_level = 20;

  const list_order &order_;
  std::array<zot_list *, last_level + 1> runs_{};
  size_t highest_ = 0;
};

// The last merge. It turns the chain into a circular list with links both ways.
void merge_into_circle(const list_order &order, zot_list *head, zot_list *earlier,
                       zot_list *later) {
  zot_list *last = head;
  const auto append = [&last](zot_list *node) {
    last->next = node;
    node->prev = last;
    last = node;
  };
  while (earlier != nullptr && later != nullptr) {
    append(order.take_front(earlier, later));
  }
  uint8_t count = 0;
  for (zot_list *node = earlier != nullptr ? earlier : later; node != nullptr; node = node->next) {
    if (++count == 0) {
      order.touch(node);
    }
    append(node);
  }
  last->next = head;
  head->prev = last;
}

}  // namespace

void zot_list_init(zot_list *head) {
  head->next = head;
  head->prev = head;
}

bool zot_list_is_empty(const zot_list *head) {
  return head->next == head;
}

void zot_list_add(zot_list *head, zot_list *node) {
  link_between(head, node, head->next);
}

void list_add_tail(zot_list *head, zot_list *node) {
  link_between(head->prev, node, head);
}

int zot_list_add_node(zot_list *head, zot_list *node) {
  if (head == nullptr || node == nullptr) {
    return -1;
  }
  zot_list_add(head, node);
  return 0;
}

int zot_list_add_node_tail(zot_list *head, zot_list *node) {
  if (head == nullptr || node == nullptr) {
    return -1;
  }
  list_add_tail(head, node);
  return 0;
}

void list_del(zot_list *node) {
  node->next->prev = node->prev;
  node->prev->next = node->next;
  node->next = reinterpret_cast<zot_list *>(removed_next);
  node->prev = reinterpret_cast<zot_list *>(removed_prev);
}

void zot_list_remove(zot_list *node) {
  list_del(node);
}

void zot_list_sort(void *priv, zot_list *head, zot_list_cmp cmp) {
  if (zot_list_is_empty(head)) {
    return;
  }
  const list_order order(priv, cmp);
  run_levels levels(order);
  head->prev->next = nullptr;
  for (zot_list *node = head->next; node != nullptr;) {
    zot_list *const rest = node->next;
    node->next = nullptr;
    levels.add(node);
    node = rest;
  }
  zot_list *const lower = levels.merge_lower();
  merge_into_circle(order, head, levels.highest(), lower);
}

ZOT_PLAIN_NAME(list_add_tail);
ZOT_PLAIN_NAME(list_del);
