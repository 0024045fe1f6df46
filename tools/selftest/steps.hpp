// SPDX-License-Identifier: Apache-2.0
// The steps of the self-test, in their order.
#pragma once

#include <span>
#include <string>

#include "tools/selftest/trial.hpp"

namespace zotconf {

// Each works on what the steps before it have left.
struct step {
  const char *name;  // one word for programs
  // Returns what it found. Throws std::exception when it failed, and `interrupted`.
  std::string (*run)(trial &on);
};

std::span<const step> steps_of_selftest();

}  // namespace zotconf
