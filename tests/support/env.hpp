// SPDX-License-Identifier: Apache-2.0
// Sets environment variables for the duration of a scope.
#pragma once

#include <optional>
#include <string>

namespace zot::test {

class env_guard {
 public:
  // Without a value, the variable is unset.
  env_guard(std::string name, const std::optional<std::string> &value);
  env_guard(const env_guard &) = delete;
  env_guard &operator=(const env_guard &) = delete;
  ~env_guard();

  // Sets another value within the scope. The end of the scope still restores the original one.
  void set(const std::optional<std::string> &value) const;

 private:
  std::string name_;
  std::optional<std::string> before_;
};

}  // namespace zot::test
