// SPDX-License-Identifier: Apache-2.0
#include "tools/service/http_types.hpp"

#include <charconv>
#include <string_view>
#include <utility>

#include "tools/output/json.hpp"

namespace zotconf {
namespace {

// The value of two hexadecimal digits; nullopt for any other text.
std::optional<char> byte_of(std::string_view digits) {
  unsigned value = 0;
  const char *const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
  const bool is_byte = digits.size() == 2 && error == std::errc() && stop == end;
  return is_byte ? std::optional(static_cast<char>(value)) : std::nullopt;
}

// A "%" without two digits is kept as it is.
std::string percent_decoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (size_t at = 0; at < text.size(); ++at) {
    const auto byte = text[at] == '%' ? byte_of(text.substr(at + 1, 2)) : std::nullopt;
    decoded += byte.value_or(text[at]);
    at += byte ? 2 : 0;
  }
  return decoded;
}

}  // namespace

http_answer text_answer(std::string body, const char *type, std::string result) {
  http_answer answer;
  answer.type = type;
  answer.body = std::move(body);
  answer.result = std::move(result);
  return answer;
}

http_answer refused(int status, const std::string &error, const std::string &file) {
  json_document document;
  document.root().set("error", error);
  if (!file.empty()) {
    document.root().set("file", file);
  }
  http_answer answer =
      text_answer(document.line(), "application/json", file.empty() ? error : error + ": " + file);
  answer.status = status;
  return answer;
}

void set_target(http_request &request, const std::string &target) {
  const size_t mark = target.find('?');
  request.path = percent_decoded(std::string_view(target).substr(0, mark));
  request.query = mark == std::string::npos ? "" : target.substr(mark + 1);
}

}  // namespace zotconf
