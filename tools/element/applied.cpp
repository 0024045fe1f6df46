// SPDX-License-Identifier: Apache-2.0
#include "tools/element/applied.hpp"

#include "tools/files/file_io.hpp"
#include "tools/model/judge.hpp"

namespace zotconf {
namespace {

std::string_view bytes_of(const zot_slot &slot) {
  const bool is_there = slot.k != nullptr && slot.k->data != nullptr;
  return is_there ? std::string_view(slot.k->data, slot.k->data_len) : std::string_view();
}

}  // namespace

applied_configuration::applied_configuration(const zot_slot &slot, const category_set &categories)
    : k_(bytes_of(slot)) {
  if (slot.gpbs == nullptr) {
    return;
  }
  for (const zot_list *node = slot.gpbs->next; node != slot.gpbs; node = node->next) {
    const zot_gpb &gpb = gpb_of(node);
    const auto category = static_cast<zot_category>(gpb.category);
    if (categories.has(category)) {
      checksums_[{category, gpb.key}] = gpb.checksum;
    }
  }
}

bool applied_configuration::is_in(const zot_slot &slot) const {
  return k_ == bytes_of(slot);
}

std::vector<change_line> applied_configuration::changes_to(const entries &whole) const {
  std::map<name, change_line> lines;
  for (const auto &[gone, checksum] : checksums_) {
    lines[gone] = {
        .category = std::string(name_of(gone.first)), .key = gone.second, .what = change::deleted};
  }
  for (const entry one : whole) {
    if (one.change() == change::deleted) {
      continue;
    }
    const name called(one.category(), one.key());
    const auto before = checksums_.find(called);
    change_line line = line_of(one);
    line.what = before == checksums_.end()                  ? change::added
                : before->second == sha256_text(one.text()) ? change::unchanged
                                                            : change::modified;
    lines[called] = std::move(line);
  }
  std::vector<change_line> changes;
  changes.reserve(lines.size());
  for (auto &[called, line] : lines) {
    changes.push_back(std::move(line));
  }
  return changes;
}

}  // namespace zotconf
