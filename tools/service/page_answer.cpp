// SPDX-License-Identifier: Apache-2.0
#include "tools/service/page_answer.hpp"

#include <algorithm>
#include <charconv>
#include <utility>
#include <vector>

#include "tools/files/file_io.hpp"

namespace zotconf {
namespace {

constexpr const char *json_policy = "default-src 'none'; frame-ancestors 'none'";

std::string base64(const std::vector<unsigned char> &bytes) {
  static constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (size_t at = 0; at < bytes.size(); at += 3) {
    const size_t count = std::min<size_t>(bytes.size() - at, 3);
    uint32_t group = 0;
    for (size_t i = 0; i < 3; ++i) {
      group = group << 8 | (i < count ? bytes[at + i] : 0U);
    }
    for (size_t i = 0; i < 4; ++i) {
      text += i <= count ? digits[group >> (18 - 6 * i) & 63U] : '=';
    }
  }
  return text;
}

}  // namespace

std::string source_hash(std::string_view html, const std::string &tag) {
  const size_t begin = html.find("<" + tag + ">") + tag.size() + 2;
  const std::string hex = sha256_text(html.substr(begin, html.find("</" + tag + ">") - begin));
  std::vector<unsigned char> bytes(hex.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    std::from_chars(hex.data() + 2 * i, hex.data() + 2 * i + 2, bytes[i], 16);
  }
  return "'sha256-" + base64(bytes) + "'";
}

http_answer page_answer(int status, std::string body, const char *type, const std::string &policy) {
  return {.status = status,
          .type = type,
          .body = std::move(body),
          .headers = {{"Cache-Control", "no-store"},
                      {"Content-Security-Policy", policy},
                      {"Referrer-Policy", "no-referrer"},
                      {"X-Content-Type-Options", "nosniff"}},
          .file = std::nullopt,
          .result = ""};
}

http_answer json_answer(int status, std::string body) {
  return page_answer(status, std::move(body), "application/json", json_policy);
}

}  // namespace zotconf
