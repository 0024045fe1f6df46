// SPDX-License-Identifier: Apache-2.0
// The head of an HTTP response: its status and the few headers that an upstream's client reads.
#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace zotconf {

constexpr long status_ok = 200;
constexpr long status_partial_content = 206;
constexpr long status_not_modified = 304;
constexpr long status_range_not_satisfiable = 416;

// The part of a file that a response with status 206 brings.
struct content_range {
  uint64_t first = 0;
  std::optional<uint64_t> total = {};  // of the complete file, if it is stated
};

// Reads "bytes 100-199/500" or "bytes 100-199/*".
std::optional<content_range> parse_content_range(std::string_view value);

// Whether a text is an entity tag of at most 256 bytes, all of them visible ASCII: "x" or W/"x".
bool is_etag(std::string_view text);

// Reads a number of seconds or a date such as "Sat, 21 Nov 2026 07:14:33 GMT". At most 24 hours; a
// date in the past is 0.
std::optional<std::chrono::seconds> parse_retry_after(std::string_view value, std::time_t now);

struct response_head {
  long status = 0;
  bool is_complete = false;
  std::string etag = {};      // empty: none, or one that is not valid
  std::string location = {};  // empty: none
  std::optional<std::chrono::seconds> retry_after = {};
  std::optional<content_range> range = {};

  // Takes the next line, with or without its line end. A status line begins anew, because interim
  // responses come before the response. Lines after the complete head are ignored.
  void take_line(std::string_view line, std::time_t now);

  // Whether the response is a redirection. 304 is none.
  [[nodiscard]] bool is_redirection() const;
  // "status 404", or with the target of a redirection. Printable.
  [[nodiscard]] std::string status_text() const;
};

}  // namespace zotconf
