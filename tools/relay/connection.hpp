// SPDX-License-Identifier: Apache-2.0
// What all connections of a relay have in common: protocol, credentials and TLS.
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <stdexcept>

#include "tools/files/file_io.hpp"
#include "tools/relay/upstream_url.hpp"

namespace zotconf {

struct connection_options {
  fs::path ca;
  fs::path certificate;
  fs::path key;
  std::chrono::milliseconds connect_timeout{0};
  uint64_t limit_rate = 0;
  std::function<std::time_t()> certificate_time;  // empty: the clock
};

// Several objects may use libcurl at a time: it counts its users.
struct curl_library {
  curl_library() { curl_global_init(CURL_GLOBAL_ALL); }
  curl_library(const curl_library &) = delete;
  curl_library &operator=(const curl_library &) = delete;
  ~curl_library() { curl_global_cleanup(); }
};

template <class Value>
void set_option(CURL *curl, CURLoption option, Value value) {
  if (curl_easy_setopt(curl, option, value) != CURLE_OK) {
    throw std::runtime_error("libcurl lacks an option that a relay needs");
  }
}

// The options and the URL outlive the handle.
void set_connection(CURL *curl, const connection_options &options, const upstream_url &url);

}  // namespace zotconf
