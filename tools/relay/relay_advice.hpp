// SPDX-License-Identifier: Apache-2.0
// What is wrong with a relay, and what an operator can do about it.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "tools/relay/relay_state.hpp"

namespace zotconf {

struct relay_note {
  std::string text;
  std::string advice;
  std::time_t since = 0;  // 0: not known
};

// Returns nothing when the relay is good. The cause comes before its effects.
std::vector<relay_note> notes_of(const relay_state &state, std::time_t now);

}  // namespace zotconf
