// SPDX-License-Identifier: Apache-2.0
#include "tools/service/page_html.hpp"

#include "tools/output/plain_text.hpp"

namespace zotconf {

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : printable(text)) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

}  // namespace zotconf
