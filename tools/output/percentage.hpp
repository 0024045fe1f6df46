// SPDX-License-Identifier: Apache-2.0
// Shares of a hundred as a user writes them: 50% or 50.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zotconf {

// Nothing for anything but a whole number from 0 to 100, with or without a percent sign.
std::optional<unsigned> parse_percentage(std::string_view text);

// Answers with an empty text, or with what is wrong.
std::string check_percentage(std::string_view text);

}  // namespace zotconf
