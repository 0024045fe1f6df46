// SPDX-License-Identifier: Apache-2.0
// Durations as a user writes and reads them: 500ms, 30s, 5m, 1h, 30d.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace zotconf {

// Accepts a whole number above 0 with one of the five units, up to one year; nullopt otherwise.
std::optional<std::chrono::milliseconds> parse_duration(std::string_view text);

// Returns an empty text when valid, else the error.
std::string check_duration(std::string_view text);

// Returns "1m30s" for 90000 ms and "1.2s" for 1250 ms.
std::string duration_text(std::chrono::milliseconds duration);

}  // namespace zotconf
