// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/upstream_url.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <stdexcept>

#include "utilities/owner.hpp"

namespace zotconf {
namespace {

using upstream_parts = std::unique_ptr<CURLU, zot::releaser<curl_url_cleanup>>;
using upstream_part = std::unique_ptr<char, zot::releaser<curl_free>>;

constexpr std::string_view after_scheme = "://";

// Null when the text is not a URL. libcurl would accept one slash and three too.
upstream_parts parsed_upstream(const std::string &url) {
  const size_t scheme = url.find(after_scheme);
  if (scheme == std::string::npos || url.substr(scheme + after_scheme.size()).starts_with('/')) {
    return nullptr;
  }
  upstream_parts parts(curl_url());
  if (parts == nullptr || curl_url_set(parts.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) {
    return nullptr;
  }
  return parts;
}

// Empty when the URL has no such part.
std::string text_of_part(const upstream_parts &url, CURLUPart part, unsigned flags = 0) {
  char *text = nullptr;
  if (curl_url_get(url.get(), part, &text, flags) != CURLUE_OK) {
    return "";
  }
  const upstream_part owner(text);
  return text;
}

bool stays_as_it_is(char c) {
  constexpr std::string_view marks = "-._~:/";
  return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
         marks.find(c) != std::string_view::npos;
}

std::string encoded_path(std::string_view path) {
  constexpr const char *digits = "0123456789ABCDEF";
  std::string encoded;
  for (const char c : path) {
    if (stays_as_it_is(c)) {
      encoded += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded += {'%', digits[byte >> 4], digits[byte & 0xf]};
  }
  return encoded;
}

}  // namespace

std::string without_credentials(const std::string &url) {
  const size_t scheme = url.find(after_scheme);
  const size_t host = scheme == std::string::npos ? 0 : scheme + after_scheme.size();
  const size_t end =
      parsed_upstream(url) != nullptr ? url.find_first_of("/?#", host) : std::string::npos;
  const size_t at = url.rfind('@', end);
  if (at == std::string::npos || at < host) {
    return url;
  }
  return url.substr(0, host) + url.substr(at + 1);
}

std::string check_upstream_url(std::string_view url) {
  constexpr const char *wrong =
      "is not https://HOST or http://HOST, with or without :PORT and /PATH";
  const upstream_parts parts = parsed_upstream(std::string(url));
  if (parts == nullptr || text_of_part(parts, CURLUPART_HOST).empty()) {
    return wrong;
  }
  const std::string scheme = text_of_part(parts, CURLUPART_SCHEME);
  const bool is_plain = url.find_first_of("?#") == std::string_view::npos;
  return (scheme == "http" || scheme == "https") && is_plain ? "" : wrong;
}

upstream_url::upstream_url(const std::string &url) {
  if (const std::string wrong = check_upstream_url(url); !wrong.empty()) {
    throw std::runtime_error(without_credentials(url) + " " + wrong);
  }
  const upstream_parts parts = parsed_upstream(url);
  user_ = text_of_part(parts, CURLUPART_USER, CURLU_URLDECODE);
  password_ = text_of_part(parts, CURLUPART_PASSWORD, CURLU_URLDECODE);
  is_secure_ = text_of_part(parts, CURLUPART_SCHEME) == "https";
  host_ = text_of_part(parts, CURLUPART_HOST);
  port_ = text_of_part(parts, CURLUPART_PORT, CURLU_DEFAULT_PORT);
  base_ = without_credentials(url);
  base_.erase(base_.find_last_not_of('/') + 1);
}

std::string upstream_url::of(std::string_view path) const {
  return base_ + "/" + encoded_path(path);
}

}  // namespace zotconf
