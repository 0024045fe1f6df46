// SPDX-License-Identifier: Apache-2.0
// Where a relay learns what its element has done: from the file of `zotconf watch --state`, or from
// the cache, whose K files are read again only if they have changed.
#pragma once

#include <optional>
#include <string>

#include "tools/cache/kept_configurations.hpp"
#include "tools/element/element_state.hpp"

namespace zotconf {

class element_source {
 public:
  // Without a file, the cache is that of the environment.
  element_source(fs::path file, element who);

  // Nullopt if it is not known; wrong() has the reason then. The file of another element is
  // refused.
  [[nodiscard]] std::optional<element_state> read();
  [[nodiscard]] const std::string &wrong() const { return wrong_; }

 private:
  [[nodiscard]] element_state state_of_file() const;
  [[nodiscard]] element_state state_of_cache();

  fs::path file_;
  element who_;
  kept_configurations kept_;
  std::string wrong_;
};

}  // namespace zotconf
