// SPDX-License-Identifier: Apache-2.0
// The time at which certificates are judged. The clock of an element starts in 1970 until a time
// server has set it, but the present is never before the build of this program, nor before a
// signature that was accepted.
#pragma once

#include <ctime>

namespace zotconf {

// Returns the latest of the three.
std::time_t trusted_time(std::time_t clock, std::time_t last_signature);

}  // namespace zotconf
