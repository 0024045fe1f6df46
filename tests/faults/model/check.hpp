// SPDX-License-Identifier: Apache-2.0
// Runs a sequence on the library and on the model in parallel, and shortens a sequence that fails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "model.hpp"
#include "steps.hpp"
#include "world.hpp"

namespace zot::faults {

// How often something was seen: "step get", "get -8".
using tally = std::map<std::string, std::uint64_t>;

struct disagreement {
  std::size_t step = 0;  // from 0
  std::string text;
};

class checker {
 public:
  checker(adapter used, lie told) : adapter_(used), lie_(told) {}

  // Nothing when the library and the model agreed after every step.
  [[nodiscard]] std::optional<disagreement> run(const sequence &steps, tally *counts);

 private:
  test::service remote_;
  std::uint16_t closed_port_ = test::closed_port();
  adapter adapter_;
  lie lie_;
};

// A sequence that still fails, but passes when any one step is taken out.
[[nodiscard]] sequence shrink(sequence failing,
                              const std::function<bool(const sequence &)> &still_fails);

}  // namespace zot::faults
