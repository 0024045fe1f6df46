// SPDX-License-Identifier: Apache-2.0
#include "zot_list.hpp"

#include <bit>
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

// Appends the nodes of two runs in order until one run is empty, and returns the last one appended.
// `earlier` becomes the remainder.
zot_list *append_both(const list_order &order, zot_list *last, zot_list *&earlier,
                      zot_list *later) {
  while (earlier != nullptr && later != nullptr) {
    zot_list *const node = order.take_front(earlier, later);
    last->next = node;
    node->prev = last;
    last = node;
  }
  if (earlier == nullptr) {
    earlier = later;
  }
  return last;
}

zot_list *merge(const list_order &order, zot_list *earlier, zot_list *later) {
  zot_list start{};
  zot_list *const last = append_both(order, &start, earlier, later);
  last->next = earlier;
  return start.next;
}

// Sorts the first nodes of a chain, at least one, and moves `rest` behind them. The earlier part is
// a power of two.
zot_list *take_sorted(const list_order &order, zot_list *&rest, size_t count) {
  if (count == 1) {
    zot_list *const node = rest;
    rest = node->next;
    node->next = nullptr;
    return node;
  }
  const size_t half = std::bit_floor(count - 1);
  zot_list *const earlier = take_sorted(order, rest, half);
  return merge(order, earlier, take_sorted(order, rest, count - half));
}

size_t count_nodes(const zot_list *head) {
  size_t count = 0;
  for (const zot_list *node = head->next; node != head; node = node->next) {
    ++count;
  }
  return count;
}

// The last merge. It turns the chain into a circular list with links both ways.
void merge_into_circle(const list_order &order, zot_list *head, zot_list *earlier,
                       zot_list *later) {
  zot_list *last = append_both(order, head, earlier, later);
  uint8_t count = 0;
  for (zot_list *node = earlier; node != nullptr; node = node->next) {
    if (++count == 0) {
      order.touch(node);
    }
    last->next = node;
    node->prev = last;
    last = node;
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
  const size_t count = count_nodes(head);
  if (count < 2) {
    return;
  }
  const list_order order(priv, cmp);
  const size_t half = std::bit_floor(count - 1);
  head->prev->next = nullptr;
  zot_list *rest = head->next;
  zot_list *const earlier = take_sorted(order, rest, half);
  merge_into_circle(order, head, earlier, take_sorted(order, rest, count - half));
}

ZOT_PLAIN_NAME(list_add_tail);
ZOT_PLAIN_NAME(list_del);
