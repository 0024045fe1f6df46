// SPDX-License-Identifier: Apache-2.0
// Durations as a user writes and reads them: 500ms, 30s, 5m, 1h.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace zotconf {

// Nothing for anything but a whole number above 0 with one of the four units, and for more than a
// year.
std::optional<std::chrono::milliseconds> parse_duration(std::string_view text);

// Answers with an empty text, or with what is wrong.
std::string check_duration(std::string_view text);

// 90000 ms is "1m30s", 1250 ms is "1.2s".
std::string duration_text(std::chrono::milliseconds duration);

}  // namespace zotconf
