// SPDX-License-Identifier: Apache-2.0
// The operations whose allocations fail, and the checks after each one.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "stage.hpp"

namespace zot::faults {

// The result of an undisturbed operation.
struct reference {
  outcome given;
  std::string after;  // the result of what followed
};

// A failed load counts as one that found nothing. So there is a reference for each combination of
// lost loads with which an operation can continue.
class references {
 public:
  // For a run that produces a reference.
  references() = default;
  explicit references(std::uint32_t loads) : loads_(loads) {}

  [[nodiscard]] std::uint32_t loads() const { return loads_; }
  void keep(std::uint32_t lost, reference kept) { by_lost_[lost] = std::move(kept); }
  // Returns null for a run that produces a reference.
  [[nodiscard]] const reference *find(std::uint32_t lost) const {
    const auto found = by_lost_.find(lost & loads_);
    return found != by_lost_.end() ? &found->second : nullptr;
  }

 private:
  std::uint32_t loads_ = 0;
  std::map<std::uint32_t, reference> by_lost_;
};

struct operation {
  std::string name;
  int status;                       // without a failure
  std::vector<int> failures;        // allowed instead with a failure
  std::uint32_t dispensable_loads;  // the operation continues without them
  std::function<void(stage &)> prepare;
  std::function<outcome(stage &, const fault &)> run;
  // Run after the operation: checks what must not have changed, and continues with the same handle.
  // Returns a description of the result.
  std::function<std::string(stage &, const outcome &got, const references &)> go_on;
};

// Leaves a cache with a configuration in force, a last one and a refused one, and a new handle.
void fill_cache(stage &on);

[[nodiscard]] std::vector<operation> creations();
[[nodiscard]] std::vector<operation> gets();
[[nodiscard]] std::vector<operation> loads();
[[nodiscard]] std::vector<operation> verdicts();
[[nodiscard]] std::vector<operation> parameters();
[[nodiscard]] std::vector<operation> every_operation();

}  // namespace zot::faults
