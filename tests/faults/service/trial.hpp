// SPDX-License-Identifier: Apache-2.0
// One misdeed at one request: an element in a separate process against the service.
#pragma once

#include <string>

#include "tests/faults/service/misdeed.hpp"

namespace zot::test {

struct trial {
  const misdeed *what;
  request_kind at;

  [[nodiscard]] std::string name() const;
};

// Returns true when all checks passed. Writes the failed ones to standard error.
[[nodiscard]] bool run_trial(const trial &tried, bool is_verbose);

}  // namespace zot::test
