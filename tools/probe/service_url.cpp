// SPDX-License-Identifier: Apache-2.0
#include "tools/probe/service_url.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <memory>

#include "utilities/owner.hpp"

namespace zotconf {
namespace {

using url_owner = std::unique_ptr<CURLU, zot::releaser<curl_url_cleanup>>;
using url_text = std::unique_ptr<char, zot::releaser<curl_free>>;

// Empty when the URL has no such part.
std::string part_of(const url_owner &url, CURLUPart part) {
  char *text = nullptr;
  if (curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) {
    return "";
  }
  const url_text owner(text);
  return text;
}

}  // namespace

std::string check_service_url(std::string_view url) {
  constexpr const char *wrong = "is not http://HOST or http://HOST:PORT";
  constexpr std::array<CURLUPart, 4> no_part_of_it = {CURLUPART_USER, CURLUPART_PASSWORD,
                                                      CURLUPART_QUERY, CURLUPART_FRAGMENT};
  const url_owner parsed(curl_url());
  if (parsed == nullptr ||
      curl_url_set(parsed.get(), CURLUPART_URL, std::string(url).c_str(), 0) != CURLUE_OK) {
    return wrong;
  }
  const bool is_plain = std::ranges::all_of(
      no_part_of_it, [&](CURLUPart part) { return part_of(parsed, part).empty(); });
  const bool is_service = part_of(parsed, CURLUPART_SCHEME) == "http" &&
                          part_of(parsed, CURLUPART_PATH) == "/" && is_plain;
  return is_service ? "" : wrong;
}

}  // namespace zotconf
