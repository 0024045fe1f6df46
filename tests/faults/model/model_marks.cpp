// SPDX-License-Identifier: Apache-2.0
// The marked list in the model, and the entries that are read from it.
#include <algorithm>
#include <tuple>

#include "model.hpp"

namespace zot::faults {
namespace {

auto object_of(const gpb &file) {
  return std::tie(file.category, file.key);
}

// Marks what two sorted lists have in common and what not.
std::vector<marked> difference(const std::vector<gpb> &old_list, const std::vector<gpb> &new_list,
                               bool other_cluster) {
  std::vector<marked> marks;
  auto was = old_list.begin();
  auto is = new_list.begin();
  while (was != old_list.end() || is != new_list.end()) {
    const bool only_old =
        is == new_list.end() || (was != old_list.end() && object_of(*was) < object_of(*is));
    const bool only_new =
        was == old_list.end() || (is != new_list.end() && object_of(*is) < object_of(*was));
    if (only_old) {
      marks.push_back({*was++, ZOT_STAT_DELETED});
    } else if (only_new) {
      marks.push_back({*is++, ZOT_STAT_ADDED});
    } else if (was->version != is->version || other_cluster) {
      marks.push_back({*is++, ZOT_STAT_MODIFIED});
      ++was;
    } else {
      // The new K may state other bytes for a version that was there.
      marks.push_back({*is++, ZOT_STAT_UNCHANGED});
      ++was;
    }
  }
  return marks;
}

bool is_other_cluster(const k_ref &a, const k_ref &b) {
  return !a || !b || a->found == nullptr || b->found == nullptr ||
         a->found->content->cluster != b->found->content->cluster;
}

const std::vector<gpb> &entries_of(const list_ref &list) {
  static const std::vector<gpb> none;
  return list ? *list : none;
}

bool wanted(const zot_catset &categories, std::int32_t category) {
  const auto number = static_cast<unsigned>(category);
  return (categories.word[number / 32] & (1U << (number % 32))) != 0;
}

}  // namespace

void model::load_marked() {
  if (has_marked_ || (load_flags_ & ZOT_LOADED_RET_LIST) != 0) {
    return;
  }
  load_flags_ |= ZOT_LOADED_RET_LIST;
  const slot &current = slots_[ZOT_SLOT_CURRENT];
  const slot &last = slots_[ZOT_SLOT_LAST];
  if (!current.k && (load_flags_ & ZOT_LOADED_CONF) == 0) {
    load_current();
  }
  if (!last.k && (load_flags_ & ZOT_LOADED_PREV_K) == 0) {
    load_last();
  }
  has_marked_ = true;
  marked_.clear();
  if (current.k || last.k) {
    marked_ = difference(entries_of(last.gpbs), entries_of(current.gpbs),
                         is_other_cluster(last.k, current.k));
  }
  if (current.k) {
    marked_root_ = current.k->root;
  }
}

void model::mark_against_current(const k_ref &k, const list_ref &list, area root) {
  const slot &current = slots_[ZOT_SLOT_CURRENT];
  marked_ = difference(entries_of(current.gpbs), entries_of(list), is_other_cluster(current.k, k));
  has_marked_ = true;
  marked_root_ = root;
}

// The list of the configuration in force, which changes nothing, or an empty one without any.
void model::renew_marks() {
  const slot &current = slots_[ZOT_SLOT_CURRENT];
  if (current.k && current.gpbs) {
    mark_against_current(current.k, current.gpbs, area::cache);
  } else {
    has_marked_ = true;
    marked_.clear();
    marked_root_ = area::cache;
  }
  marks_wait_ = false;
}

void model::settle_marks() {
  const bool is_settled = slots_[ZOT_SLOT_CURRENT].k && !marks_wait_ && has_marked_;
  if (!waits_for_verdict() && !is_settled && lie_ != lie::withdrawn_list_stays) {
    renew_marks();
  }
}

// What of the configuration in force is lost in the scratch directory is read from the cache, from
// then on all of it.
int model::read_file(const gpb &file, bool &is_lost) {
  const std::vector<gpb> &in_force = entries_of(slots_[ZOT_SLOT_CURRENT].gpbs);
  const auto order = [](const gpb &one) { return std::tie(one.category, one.key, one.version); };
  const auto at_or_behind =
      std::ranges::find_if(in_force, [&](const gpb &one) { return !(order(one) < order(file)); });
  const bool is_in_force = at_or_behind != in_force.end() && at_or_behind->bytes == file.bytes &&
                           at_or_behind->has_digest == file.has_digest;
  if (is_lost && is_in_force) {
    return verify(cache_, file);
  }
  const int status = verify(at(marked_root_), file);
  if (is_lost || status != ZOT_ERR_CORRUPTED || !is_in_force) {
    return status;
  }
  is_lost = true;
  marked_root_ = marks_wait_ ? marked_root_ : area::cache;
  return verify(cache_, file);
}

int model::filter(std::uint32_t mask, const zot_catset &categories, outcome &seen) {
  if ((mask & ZOT_STAT_CACHED) != 0) {
    mask = test::every_change;
  }
  const bool full = (mask & ZOT_STAT_FULL) != 0;
  bool is_lost = false;
  for (marked &one : marked_) {
    const bool deleted = one.stat == ZOT_STAT_DELETED;
    if (!wanted(categories, one.file.category) || (full ? deleted : (one.stat & mask) == 0)) {
      continue;
    }
    if (!deleted && !(full && one.read)) {
      const int status = read_file(one.file, is_lost);
      one.read = status == ZOT_OK;
      if (status != ZOT_OK) {
        seen.entries.clear();
        return status;
      }
    }
    test::returned_entry entry;
    entry.category = one.file.category;
    entry.key = one.file.key;
    entry.stat = full ? static_cast<std::uint32_t>(ZOT_STAT_FULL) : one.stat;
    entry.has_data = !deleted;
    entry.bytes = deleted ? "" : one.file.bytes;
    entry.size = static_cast<std::uint32_t>(entry.bytes.size());
    seen.entries.push_back(entry);
  }
  return ZOT_OK;
}

}  // namespace zot::faults
