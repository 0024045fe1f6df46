// SPDX-License-Identifier: Apache-2.0
// Text from afar, made fit for a terminal, a log and JSON.
#pragma once

#include <string>
#include <string_view>

namespace zotconf {

bool is_utf8(std::string_view text);

// The text with a "?" for each byte that isn't part of a UTF-8 character: JSON takes no other.
std::string valid_utf8(std::string text);

// Valid UTF-8 with a "?" for each control character, those of two bytes included: a terminal takes
// either kind as orders.
std::string printable(std::string_view text);

// The same as one word: a "?" for each blank, too.
std::string one_word(std::string_view text);

}  // namespace zotconf
