// SPDX-License-Identifier: Apache-2.0
// Percentages as a user writes them: 50% or 50.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zotconf {

// Accepts a whole number from 0 to 100, with or without a percent sign; nullopt otherwise.
std::optional<unsigned> parse_percentage(std::string_view text);

// Returns an empty text when valid, else the error.
std::string check_percentage(std::string_view text);

}  // namespace zotconf
