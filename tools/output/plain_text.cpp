// SPDX-License-Identifier: Apache-2.0
#include "tools/output/plain_text.hpp"

#include <algorithm>

namespace zotconf {
namespace {

// Returns the number of bytes of the UTF-8 character at the start of the text; 0 if it is invalid.
size_t character_size(std::string_view text) {
  const auto byte = [text](size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char first = byte(0);
  if (first < 0x80) {
    return 1;
  }
  const size_t size = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : first < 0xf5 ? 4 : 0;
  if (size == 0 || text.size() < size) {
    return 0;
  }
  for (size_t at = 1; at < size; ++at) {
    if ((byte(at) & 0xc0) != 0x80) {
      return 0;
    }
  }
  const bool overlong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xf0 && byte(1) < 0x90);
  const bool surrogate = first == 0xed && byte(1) >= 0xa0;
  const bool beyond = first == 0xf4 && byte(1) >= 0x90;
  return overlong || surrogate || beyond ? 0 : size;
}

}  // namespace

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const size_t size = character_size(text);
    if (size == 0) {
      return false;
    }
    text.remove_prefix(size);
  }
  return true;
}

std::string valid_utf8(std::string text) {
  for (size_t at = 0; at < text.size();) {
    const size_t size = character_size(std::string_view(text).substr(at));
    if (size == 0) {
      text[at] = '?';
    }
    at += std::max<size_t>(size, 1);
  }
  return text;
}

std::string printable(std::string_view text) {
  std::string result;
  for (const char c : valid_utf8(std::string(text))) {
    const auto byte = static_cast<unsigned char>(c);
    // U+0080 to U+009F are control characters: the byte 0xC2 followed by 0x80 to 0x9F.
    if (byte >= 0x80 && byte < 0xa0 && result.ends_with('\xc2')) {
      result.back() = '?';
    } else {
      result += byte < 0x20 || byte == 0x7f ? '?' : c;
    }
  }
  return result;
}

std::string one_word(std::string_view text) {
  std::string result = printable(text);
  std::ranges::replace(result, ' ', '?');
  return result;
}

}  // namespace zotconf
