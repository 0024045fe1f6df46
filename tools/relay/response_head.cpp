// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/response_head.hpp"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "tools/output/plain_text.hpp"
#include "tools/relay/upstream_url.hpp"

namespace zotconf {
namespace {

using std::chrono::seconds;

constexpr size_t longest_etag = 256;
constexpr size_t longest_location = 256;
constexpr seconds longest_pause = std::chrono::hours(24);

bool is_same_header(std::string_view left, std::string_view right) {
  return left.size() == right.size() && ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) {
    return "";
  }
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool is_decimal_digit(char c) {
  return c >= '0' && c <= '9';
}

// Removes a number from the front of the text.
std::optional<uint64_t> take_digits(std::string_view &text) {
  uint64_t number = 0;
  const char *const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc()) {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<size_t>(stopped - text.data()));
  return number;
}

bool take_prefix(std::string_view &text, std::string_view prefix) {
  if (!text.starts_with(prefix)) {
    return false;
  }
  text.remove_prefix(prefix.size());
  return true;
}

std::optional<uint64_t> only_digits(std::string_view text) {
  const std::optional<uint64_t> number = take_digits(text);
  return text.empty() ? number : std::nullopt;
}

// time_t has four bytes on some systems, so the seconds are counted here.
std::optional<int64_t> parse_date(std::string_view text) {
  std::tm parts{};
  const std::string date(text);
  const char *const end = ::strptime(date.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
  if (end == nullptr || *end != '\0') {
    return std::nullopt;
  }
  const std::chrono::year_month_day day(std::chrono::year(parts.tm_year + 1900),
                                        std::chrono::month(static_cast<unsigned>(parts.tm_mon) + 1),
                                        std::chrono::day(static_cast<unsigned>(parts.tm_mday)));
  if (!day.ok()) {
    return std::nullopt;
  }
  const auto since_midnight = std::chrono::hours(parts.tm_hour) +
                              std::chrono::minutes(parts.tm_min) + seconds(parts.tm_sec);
  return seconds(std::chrono::sys_days(day).time_since_epoch() + since_midnight).count();
}

long status_of_line(std::string_view line) {
  line.remove_prefix(std::min(line.find(' '), line.size()));
  line = trimmed(line).substr(0, 3);
  return static_cast<long>(only_digits(line).value_or(0));
}

}  // namespace

std::optional<content_range> parse_content_range(std::string_view value) {
  if (!take_prefix(value, "bytes ")) {
    return std::nullopt;
  }
  const std::optional<uint64_t> first = take_digits(value);
  if (!first || !take_prefix(value, "-")) {
    return std::nullopt;
  }
  const std::optional<uint64_t> last = take_digits(value);
  if (!last || *last < *first || !take_prefix(value, "/")) {
    return std::nullopt;
  }
  if (value == "*") {
    return content_range{.first = *first};
  }
  const std::optional<uint64_t> total = only_digits(value);
  if (!total || *total <= *last) {
    return std::nullopt;
  }
  return content_range{.first = *first, .total = total};
}

bool is_etag(std::string_view text) {
  if (text.size() > longest_etag) {
    return false;
  }
  take_prefix(text, "W/");
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') {
    return false;
  }
  return std::ranges::all_of(text.substr(1, text.size() - 2),
                             [](char c) { return c > ' ' && c < '\x7f' && c != '"'; });
}

std::optional<seconds> parse_retry_after(std::string_view value, std::time_t now) {
  if (!value.empty() && std::ranges::all_of(value, is_decimal_digit)) {
    // A number that does not fit is longer than the longest pause.
    const uint64_t count = only_digits(value).value_or(UINT64_MAX);
    return seconds(std::min(count, static_cast<uint64_t>(longest_pause.count())));
  }
  const std::optional<int64_t> date = parse_date(value);
  if (!date) {
    return std::nullopt;
  }
  return std::clamp(seconds(*date - int64_t{now}), seconds(0), longest_pause);
}

void response_head::take_line(std::string_view line, std::time_t now) {
  if (is_complete) {
    return;
  }
  line = trimmed(line);
  if (line.starts_with("HTTP/")) {
    *this = {.status = status_of_line(line)};
    return;
  }
  if (line.empty()) {
    is_complete = status >= status_ok;
    return;
  }
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos) {
    return;
  }
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = trimmed(line.substr(colon + 1));
  if (is_same_header(name, "etag")) {
    etag = is_etag(value) ? value : "";
  } else if (is_same_header(name, "location")) {
    location = value.substr(0, longest_location);
  } else if (is_same_header(name, "retry-after")) {
    retry_after = parse_retry_after(value, now);
  } else if (is_same_header(name, "content-range")) {
    range = parse_content_range(value);
  }
}

bool response_head::is_redirection() const {
  return status >= 300 && status < 400 && status != status_not_modified;
}

std::string response_head::status_text() const {
  std::string text = "status " + std::to_string(status);
  if (is_redirection() && !location.empty()) {
    // The query may be another one each time.
    const std::string target =
        without_credentials(location.substr(0, location.find_first_of("?#")));
    text += ", a redirection to " + printable(target) + ", which is not followed";
  }
  return text;
}

}  // namespace zotconf
