// SPDX-License-Identifier: Apache-2.0
// Generated configurations for the measurements, the same on every machine.
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
  std::vector<published_file> files;  // in the order of K, which is not sorted
  std::string text;                   // K itself
};

// Both exist until the program ends, because generating the largest takes longer than measuring a
// small operation.
const document &first_document(std::size_t entries);
// The same with every hundredth file in a later version.
const document &updated_document(std::size_t entries);
// The same with the files in the order of a list, as `zotconf publish` lists them.
const document &ordered_document(std::size_t entries);

// In the order of a GPB list: category, key, version.
std::vector<published_file> in_list_order(const document &of);

}  // namespace zot::bench
