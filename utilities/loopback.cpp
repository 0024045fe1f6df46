// SPDX-License-Identifier: Apache-2.0
#include "utilities/loopback.hpp"

#include <curl/curl.h>
#include <strings.h>

#include <cstring>
#include <memory>

#include "utilities/owner.hpp"

namespace {

using curl_url_handle = std::unique_ptr<CURLU, zot::releaser<curl_url_cleanup>>;
using curl_text = std::unique_ptr<char, zot::releaser<curl_free>>;

bool is_loopback(const char *host) {
  constexpr size_t net_length = 4;
  const bool is_in_loopback_net =
      std::strncmp(host, "127.", net_length) == 0 &&
      host[net_length + std::strspn(host + net_length, "0123456789.")] == '\0';
  return is_in_loopback_net || ::strcasecmp(host, "localhost") == 0 ||
         std::strcmp(host, "[::1]") == 0;
}

}  // namespace

bool zot::may_name_loopback(const char *url) {
  const curl_url_handle parsed(curl_url());
  char *part = nullptr;
  if (parsed == nullptr ||
      curl_url_set(parsed.get(), CURLUPART_URL, url, CURLU_GUESS_SCHEME) != CURLUE_OK ||
      curl_url_get(parsed.get(), CURLUPART_HOST, &part, 0) != CURLUE_OK) {
    return true;
  }
  const curl_text host(part);
  return is_loopback(part);
}
