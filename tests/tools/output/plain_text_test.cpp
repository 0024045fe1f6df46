// SPDX-License-Identifier: Apache-2.0
#include "tools/output/plain_text.hpp"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace zotconf {
namespace {

TEST(OneWord, HidesBlanksAndControlCharacters) {
  EXPECT_EQ(one_word("a b\n\x7f"), "a?b??");
  EXPECT_EQ(one_word("/path/ä"), "/path/ä");
}

TEST(Printable, HidesControlCharactersOfOneAndTwoBytes) {
  EXPECT_EQ(printable("a b\x1b[31m\xc2\x9b\x33m\xc2\x80"), "a b?[31m?3m?");
  EXPECT_EQ(printable("\x9b\xff"), "??");
  EXPECT_EQ(printable("ä €\xc2\xa0"), "ä €\xc2\xa0");
}

TEST(ValidUtf8, KeepsCharacters) {
  for (const std::string text : {"", "abc", "ä", "€", "𐍈", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_EQ(valid_utf8(text), text);
  }
}

TEST(ValidUtf8, HidesEveryOtherByte) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"a\xff", "a?"},               // not a first byte
      {"\x80x", "?x"},               // a continuation byte alone
      {"\xc3", "?"},                 // truncated
      {"\xe2\x82x", "??x"},          // truncated in the middle
      {"\xc0\xaf", "??"},            // overlong
      {"\xe0\x80\xaf", "???"},       // overlong
      {"\xf0\x80\x80\xaf", "????"},  // overlong
      {"\xed\xa0\x80", "???"},       // a surrogate
      {"\xf4\x90\x80\x80", "????"},  // above the last code point
      {"\xf5\x80\x80\x80", "????"},  // above the last code point
      {"\xc3\xa4\xff\xc3\xa4", "\xc3\xa4?\xc3\xa4"}};
  for (const auto &[text, shown] : cases) {
    EXPECT_EQ(valid_utf8(text), shown);
  }
}

}  // namespace
}  // namespace zotconf
