// SPDX-License-Identifier: Apache-2.0
#include "tools/output/percentage.hpp"

#include <charconv>

namespace zotconf {

std::optional<unsigned> parse_percentage(std::string_view text) {
  if (text.ends_with('%')) {
    text.remove_suffix(1);
  }
  unsigned share = 0;
  const char *const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, share);
  if (error != std::errc() || stopped != end || share > 100) {
    return std::nullopt;
  }
  return share;
}

std::string check_percentage(std::string_view text) {
  return parse_percentage(text) ? "" : "is not a percentage from 0% to 100%";
}

}  // namespace zotconf
