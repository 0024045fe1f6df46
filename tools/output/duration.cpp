// SPDX-License-Identifier: Apache-2.0
#include "tools/output/duration.hpp"

#include <algorithm>
#include <array>
#include <charconv>

namespace zotconf {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr milliseconds longest = 365 * 24h;

struct unit {
  std::string_view name;
  milliseconds length;
};

constexpr std::array units = {unit{"ms", 1ms}, unit{"s", 1s}, unit{"m", 1min}, unit{"h", 1h},
                              unit{"d", 24h}};

}  // namespace

std::optional<milliseconds> parse_duration(std::string_view text) {
  int64_t count = 0;
  const char *const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, count);
  const auto *const found = std::ranges::find(units, std::string_view(stopped, end), &unit::name);
  if (error != std::errc() || found == units.end() || count < 1 ||
      count > longest / found->length) {
    return std::nullopt;
  }
  return count * found->length;
}

std::string check_duration(std::string_view text) {
  return parse_duration(text) ? "" : "is not a duration such as 500ms, 30s, 5m, 1h or 30d";
}

std::string duration_text(milliseconds duration) {
  const auto count = [](auto value) { return std::to_string(value.count()); };
  if (duration < 1s) {
    return count(duration) + "ms";
  }
  const auto seconds = std::chrono::floor<std::chrono::seconds>(duration);
  if (seconds < 1min) {
    const auto tenths = (duration - seconds) / 100;
    return count(seconds) + (tenths >= 1ms ? "." + count(tenths) : "") + "s";
  }
  const auto minutes = std::chrono::floor<std::chrono::minutes>(duration);
  if (minutes < 1h) {
    return count(minutes) + "m" + (seconds > minutes ? count(seconds - minutes) + "s" : "");
  }
  const auto hours = std::chrono::floor<std::chrono::hours>(duration);
  if (hours < 24h) {
    return count(hours) + "h" + (minutes > hours ? count(minutes - hours) + "m" : "");
  }
  const auto days = std::chrono::floor<std::chrono::days>(duration);
  return count(days) + "d" + (hours > days ? count(hours - days) + "h" : "");
}

}  // namespace zotconf
