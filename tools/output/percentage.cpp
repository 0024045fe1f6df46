// SPDX-License-Identifier: Apache-2.0
#include "tools/output/percentage.hpp"

#include <algorithm>
#include <charconv>

namespace zotconf {
namespace {

constexpr size_t most_decimals = 4;
constexpr uint32_t one_percent = whole_share / 100;

}  // namespace

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

std::optional<uint32_t> parse_share(std::string_view text) {
  if (!text.ends_with('%')) {
    return std::nullopt;
  }
  text.remove_suffix(1);
  const size_t point = std::min(text.find('.'), text.size());
  const bool has_point = point < text.size();
  const std::string_view decimals = has_point ? text.substr(point + 1) : "";
  if (point == 0 || has_point == decimals.empty() || decimals.size() > most_decimals) {
    return std::nullopt;
  }
  std::string digits(text.substr(0, point));
  digits.append(decimals).append(most_decimals - decimals.size(), '0');
  uint32_t share = 0;
  const char *const end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, share);
  if (error != std::errc() || stopped != end || share > whole_share) {
    return std::nullopt;
  }
  return share;
}

std::string share_text(uint32_t share) {
  std::string decimals = std::to_string(one_percent + share % one_percent).substr(1);
  decimals.erase(decimals.find_last_not_of('0') + 1);
  return std::to_string(share / one_percent) + (decimals.empty() ? "" : "." + decimals) + "%";
}

}  // namespace zotconf
