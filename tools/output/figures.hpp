// SPDX-License-Identifier: Apache-2.0
// Times and counts as the commands print them.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace zotconf {

// Returns a text such as "2026-11-21T07:14:33Z".
std::string iso_time(std::time_t when);

// Returns "1 entry" or "2 entries".
std::string counted(uint64_t number, std::string_view one, std::string_view many);

}  // namespace zotconf
