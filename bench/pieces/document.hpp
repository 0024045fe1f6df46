// SPDX-License-Identifier: Apache-2.0
// Configurations to measure with: made here, and the same ones on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zot::bench {

struct published_file {
  std::int32_t category = 0;
  std::string key;
  std::uint64_t version = 0;
  std::uint32_t size = 0;
  std::string checksum;
  bool is_modified = false;

  [[nodiscard]] std::string path() const;
};

struct document {
  std::vector<published_file> files;  // in the order in which K names them, which is no order
  std::string text;                   // K itself
};

// Both live as long as the program; making the largest takes longer than measuring a small piece.
const document &first_document(std::size_t entries);
// The same with every hundredth file in a later version.
const document &updated_document(std::size_t entries);
// With the files in the order of a list, as `zotconf publish` names them.
const document &ordered_document(std::size_t entries);

// In the order of a GPB list: category, key, version.
std::vector<published_file> in_list_order(const document &of);

}  // namespace zot::bench
