// SPDX-License-Identifier: Apache-2.0
// Where an element is on the way to the K that is published for it.
#pragma once

#include <array>
#include <chrono>
#include <ctime>
#include <string>

#include "tools/fleet/report_file.hpp"

namespace zotconf {

enum class standing { in_force, refused, failing, waiting, silent };

inline constexpr std::array all_standings = {
    standing::in_force, standing::refused, standing::failing, standing::waiting, standing::silent};

// Returns "in_force", as in JSON.
const char *name_of(standing state);
// Returns "in force", for a user.
const char *words_of(standing state);

struct element_standing {
  standing state = standing::silent;
  std::string reason;  // empty for an element that has K in force or waits for it
};

// `digest` is the SHA-256 of the published K.
element_standing standing_of(const report_reading &reading, const std::string &digest,
                             std::time_t now, std::chrono::milliseconds silent_after);

// Whether a report was written more than ten minutes ahead of `now`, by the element's clock.
bool is_ahead(const element_report &report, std::time_t now);

// The same for the time of its file. Until then, the element does not become silent.
bool is_received_ahead(const element_report &report, std::time_t now);

}  // namespace zotconf
