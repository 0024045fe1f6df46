// SPDX-License-Identifier: Apache-2.0
// Runs an element through three cycles; the service misbehaves in the second.
#pragma once

#include <string>

#include "tests/faults/service/misdeed.hpp"

namespace zot::test {

// Controls the service through the socket. Returns the failed checks, one per line.
[[nodiscard]] std::string check_element(const misdeed &what, request_kind at, int control,
                                        bool is_verbose);

}  // namespace zot::test
