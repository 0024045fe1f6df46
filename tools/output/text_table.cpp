// SPDX-License-Identifier: Apache-2.0
#include "tools/output/text_table.hpp"

#include <algorithm>
#include <ostream>

namespace zotconf {
namespace {

// The number of characters: bytes that continue a UTF-8 character do not count.
size_t width_of(const std::string &text) {
  return static_cast<size_t>(std::ranges::count_if(
      text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

}  // namespace

std::vector<size_t> text_table::widths() const {
  std::vector<size_t> result;
  for (const column &each : columns_) {
    result.push_back(width_of(each.title));
  }
  for (const auto &row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) {
      result.at(i) = std::max(result.at(i), width_of(row[i].text));
    }
  }
  return result;
}

void text_table::print(const console &where) const {
  if (rows_.empty()) {
    return;
  }
  const auto wide = widths();
  const auto print_row = [&](const std::vector<cell> &row) {
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string gap(wide[i] - width_of(row[i].text), ' ');
      const bool is_last = i + 1 == row.size();
      const bool to_right = columns_[i].side == align::right;
      where.out() << (to_right ? gap : "") << where.paint(row[i].text, row[i].with)
                  << (to_right || is_last ? "" : gap) << (is_last ? "\n" : "  ");
    }
  };
  std::vector<cell> titles;
  for (const column &each : columns_) {
    titles.emplace_back(each.title, colour::bold);
  }
  print_row(titles);
  std::ranges::for_each(rows_, print_row);
}

}  // namespace zotconf
