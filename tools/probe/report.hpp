// SPDX-License-Identifier: Apache-2.0
// What the probe prints: a line for each check, or a JSON object.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>

#include "tools/output/console.hpp"
#include "tools/probe/checks.hpp"

namespace zotconf {

enum class check_result { passed, failed, not_run };

class probe_report {
 public:
  explicit probe_report(const console &where) : where_(where) {}

  // `found` says what came instead, or why the check did not run; empty after one that passed.
  void print_check(const check &each, check_result result, const std::string &found,
                   std::chrono::microseconds duration);
  void print_end() const;

  [[nodiscard]] bool has_failed() const { return !first_failed_.empty(); }

 private:
  [[nodiscard]] size_t count(check_result result) const {
    return counts_[static_cast<size_t>(result)];
  }

  const console &where_;
  std::array<size_t, 3> counts_{};
  std::string first_failed_;
};

}  // namespace zotconf
