// SPDX-License-Identifier: Apache-2.0
// The reasons why a transfer fails, as messages.
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "tools/relay/upstream_url.hpp"

namespace zotconf {

struct failed_transfer {
  CURL *curl = nullptr;
  CURLcode result = CURLE_OK;
  std::string reason;  // libcurl's own words; may be empty
  bool is_asked = false;
  bool has_head = false;
  uint64_t body_bytes = 0;
  std::chrono::milliseconds connect_timeout{0};
};

// Whether the connection ended after the request, so that another attempt may succeed.
bool is_broken(const failed_transfer &failed);

std::string problem_text(const failed_transfer &failed, const upstream_url &url);

// Does not state what has arrived, because that would be another text each time.
std::string early_end(uint64_t size);

}  // namespace zotconf
