// SPDX-License-Identifier: Apache-2.0
// The steps of the self-test, in order.
#pragma once

#include <span>
#include <string>

#include "tools/selftest/trial.hpp"

namespace zotconf {

// Each step uses the results of the steps before it.
struct step {
  const char *name;  // an identifier, for JSON
  // Returns what the step found. Throws std::exception if it failed, and `interrupted`.
  std::string (*run)(trial &on);
};

std::span<const step> steps_of_selftest();

}  // namespace zotconf
