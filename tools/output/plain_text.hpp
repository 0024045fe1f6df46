// SPDX-License-Identifier: Apache-2.0
// Makes text from outside safe for a terminal, a log and JSON.
#pragma once

#include <string>
#include <string_view>

namespace zotconf {

bool is_utf8(std::string_view text);

// Replaces each byte that is not part of a UTF-8 character by "?", because JSON must be valid
// UTF-8.
std::string valid_utf8(std::string text);

// Returns valid UTF-8 with a "?" for each control character, including two-byte ones: a terminal
// would interpret them as commands.
std::string printable(std::string_view text);

// Like printable(), with a "?" for each blank too, so that the result is one word.
std::string one_word(std::string_view text);

}  // namespace zotconf
