// SPDX-License-Identifier: Apache-2.0
// Output of the self-test: one line or one JSON object for each step.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"
#include "tools/output/json.hpp"
#include "tools/selftest/target.hpp"

namespace zotconf {

enum class step_result { ok, failed, not_run };

class selftest_report {
 public:
  explicit selftest_report(const console &where) : where_(where) {}

  void print_target(const target &found, const std::string &version,
                    const std::optional<fs::path> &folder);
  // `text` is what the step found, or why it failed.
  void print_step(const std::string &name, step_result result, std::chrono::microseconds duration,
                  const std::string &text);
  // nullopt: the folder is removed.
  void print_end(const std::optional<fs::path> &kept_folder);

  [[nodiscard]] bool has_failed() const { return !first_failed_.empty(); }

 private:
  void print_line(const json_document &line) const;

  const console &where_;
  size_t steps_ = 0;
  size_t passed_ = 0;
  std::string first_failed_;
};

}  // namespace zotconf
