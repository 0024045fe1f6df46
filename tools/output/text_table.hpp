// SPDX-License-Identifier: Apache-2.0
// A text table: each column is as wide as its longest cell.
#pragma once

#include <string>
#include <vector>

#include "tools/output/console.hpp"

namespace zotconf {

enum class align { left, right };

struct column {
  std::string title;
  align side = align::left;
};

struct cell {
  cell(std::string words, colour paint = colour::none) : text(std::move(words)), with(paint) {}
  cell(const char *words) : text(words) {}

  std::string text;
  colour with = colour::none;
};

class text_table {
 public:
  explicit text_table(std::vector<column> columns) : columns_(std::move(columns)) {}

  void add_row(std::vector<cell> cells) { rows_.push_back(std::move(cells)); }
  // Prints the titles and the rows; prints nothing when there are no rows.
  void print(const console &where) const;

 private:
  [[nodiscard]] std::vector<size_t> widths() const;

  std::vector<column> columns_;
  std::vector<std::vector<cell>> rows_;
};

}  // namespace zotconf
