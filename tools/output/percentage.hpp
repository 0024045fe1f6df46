// SPDX-License-Identifier: Apache-2.0
// Percentages as a user writes them: 50% or 50; and shares such as 0.5%.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zotconf {

// Accepts a whole number from 0 to 100, with or without a percent sign; nullopt otherwise.
std::optional<unsigned> parse_percentage(std::string_view text);

// Returns an empty text when valid, else the error.
std::string check_percentage(std::string_view text);

// 100%. A share is a number of millionths.
inline constexpr uint32_t whole_share = 1'000'000;

// Accepts a number from 0% to 100% with a percent sign and at most four decimals; nullopt
// otherwise.
std::optional<uint32_t> parse_share(std::string_view text);

// Returns "0.43%" for 4300.
std::string share_text(uint32_t share);

}  // namespace zotconf
