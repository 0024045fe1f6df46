// SPDX-License-Identifier: Apache-2.0
// Runs an element through three cycles; the misdeed happens in the second.
#pragma once

#include <string>

#include "tests/faults/service/misdeed.hpp"

namespace zot::test {

// Steers the service through the socket. Returns what did not hold, a line each.
[[nodiscard]] std::string check_element(const misdeed &what, request_kind at, int control,
                                        bool is_verbose);

}  // namespace zot::test
