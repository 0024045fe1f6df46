// SPDX-License-Identifier: Apache-2.0
// A wave of a fleet: the elements that one `publish --fleet --wave` is for. A share depends on the
// indexes alone, so a larger share contains the elements of a smaller one, in every fleet.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/files/file_io.hpp"

namespace zotconf {

// The smallest share that contains this element: the first 64 bits of the SHA-256 of its index, as
// a part of 2^64, rounded up to the next millionth. The index is in upper case.
uint32_t smallest_share_with(std::string_view index);

class wave {
 public:
  // A share (1%), a list (0A,0B), or a file with one index on each line (@FILE); in a file, empty
  // lines and those that begin with # are skipped. Throws std::runtime_error for any other text.
  explicit wave(const std::string &text);

  [[nodiscard]] bool contains(const std::string &index) const;
  // `indexes` are the elements of a fleet, the names in this folder, sorted and in upper case.
  // Throws a refusal if none of them is in the wave, or if the wave lists others.
  void check(const std::vector<std::string> &indexes, const fs::path &folder) const;

 private:
  uint32_t share_ = 0;               // 0: it is a list
  std::vector<std::string> listed_;  // upper case, sorted, each once
};

}  // namespace zotconf
