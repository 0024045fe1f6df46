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

// The form in which an element's own service is asked, told without taking the URL apart.
bool names_own_service(const char *url) {
  constexpr char start[] = "http://127.0.0.1:";
  constexpr size_t start_length = sizeof start - 1;
  if (std::strncmp(url, start, start_length) != 0) {
    return false;
  }
  const size_t digits = std::strspn(url + start_length, "0123456789");
  return digits > 0 && url[start_length + digits] == '/';
}

}  // namespace

bool zot::may_name_loopback(const char *url) {
  if (names_own_service(url)) {
    return true;
  }
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
