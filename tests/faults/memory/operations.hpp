// SPDX-License-Identifier: Apache-2.0
// The operations whose allocations fail, and what has to hold after each.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "stage.hpp"

namespace zot::faults {

// How an operation ends that nothing disturbs.
struct reference {
  outcome given;
  std::string after;  // of what followed
};

// A load that fails counts as one that found nothing, so there is a reference for each combination
// of lost loads that an operation goes on without.
class references {
 public:
  // For a run that becomes a reference itself.
  references() = default;
  explicit references(std::uint32_t loads) : loads_(loads) {}

  [[nodiscard]] std::uint32_t loads() const { return loads_; }
  void keep(std::uint32_t lost, reference kept) { by_lost_[lost] = std::move(kept); }
  // Null for a run that becomes a reference itself.
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
  int status;                       // undisturbed
  std::vector<int> failures;        // what it may answer instead
  std::uint32_t dispensable_loads;  // it goes on without them
  std::function<void(stage &)> prepare;
  std::function<outcome(stage &, const fault &)> run;
  // After a run: what it has to have left alone, and that the same handle goes on. Says how.
  std::function<std::string(stage &, const outcome &got, const references &)> go_on;
};

// Leaves a cache with a configuration in force, one before it and one that was rolled back, and a
// new handle.
void fill_cache(stage &on);

[[nodiscard]] std::vector<operation> creations();
[[nodiscard]] std::vector<operation> gets();
[[nodiscard]] std::vector<operation> loads();
[[nodiscard]] std::vector<operation> verdicts();
[[nodiscard]] std::vector<operation> parameters();
[[nodiscard]] std::vector<operation> every_operation();

}  // namespace zot::faults
