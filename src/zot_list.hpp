// SPDX-License-Identifier: Apache-2.0
// Typed access to the records whose nodes form the lists.
#pragma once

#include <cstddef>
#include <type_traits>

#include "zot_conf.h"

namespace zot {

namespace list_detail {

static_assert(std::is_standard_layout_v<zot_gpb> && std::is_standard_layout_v<zot_ret_data>);

template <class Record, std::size_t Offset>
Record &record_of(zot_list *node) {
  return *reinterpret_cast<Record *>(reinterpret_cast<char *>(node) - Offset);
}

template <class Record, std::size_t Offset>
const Record &record_of(const zot_list *node) {
  return *reinterpret_cast<const Record *>(reinterpret_cast<const char *>(node) - Offset);
}

// The records of a list in order. A null list is an empty range. A loop must not unlink the record
// that it visits.
template <class Record, std::size_t Offset, class Node>
class record_range {
 public:
  class iterator {
   public:
    explicit iterator(Node *node) : node_(node) {}
    Record &operator*() const { return record_of<std::remove_const_t<Record>, Offset>(node_); }
    iterator &operator++() {
      node_ = node_->next;
      return *this;
    }
    bool operator==(const iterator &other) const = default;

   private:
    Node *node_;
  };

  explicit record_range(Node *head) : head_(head) {}
  [[nodiscard]] iterator begin() const {
    return iterator(head_ != nullptr ? head_->next : nullptr);
  }
  [[nodiscard]] iterator end() const { return iterator(head_); }

 private:
  Node *head_;
};

}  // namespace list_detail

// The record that contains a node.
inline zot_gpb &gpb_of(zot_list *node) {
  return list_detail::record_of<zot_gpb, offsetof(zot_gpb, node)>(node);
}
inline const zot_gpb &gpb_of(const zot_list *node) {
  return list_detail::record_of<zot_gpb, offsetof(zot_gpb, node)>(node);
}
inline zot_ret_data &ret_data_of(zot_list *node) {
  return list_detail::record_of<zot_ret_data, offsetof(zot_ret_data, node)>(node);
}
inline const zot_ret_data &ret_data_of(const zot_list *node) {
  return list_detail::record_of<zot_ret_data, offsetof(zot_ret_data, node)>(node);
}

// Use: for (zot_gpb &gpb : zot::gpb_range(gpbs))
inline auto gpb_range(zot_list *head) {
  return list_detail::record_range<zot_gpb, offsetof(zot_gpb, node), zot_list>(head);
}
inline auto gpb_range(const zot_list *head) {
  return list_detail::record_range<const zot_gpb, offsetof(zot_gpb, node), const zot_list>(head);
}
inline auto ret_data_range(zot_list *head) {
  return list_detail::record_range<zot_ret_data, offsetof(zot_ret_data, node), zot_list>(head);
}

}  // namespace zot
