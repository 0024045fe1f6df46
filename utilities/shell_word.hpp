// SPDX-License-Identifier: Apache-2.0
// Which texts a shell takes literally.
#pragma once

namespace zot {

// Whether a text, unquoted in a shell command, is one literal word: nothing in it splits the word,
// expands, quotes or ends the command.
constexpr bool is_plain_shell_word(const char *text) {
  constexpr char special[] = "'\"`$;&|<>*?[(){}\\";
  if (text == nullptr || text[0] == '\0' || text[0] == '-' || text[0] == '~' || text[0] == '#') {
    return false;
  }
  for (const char *at = text; *at != '\0'; ++at) {
    const auto byte = static_cast<unsigned char>(*at);
    if (byte <= 0x20 || byte == 0x7f) {
      return false;
    }
    for (const char *one = special; *one != '\0'; ++one) {
      if (*at == *one) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace zot
