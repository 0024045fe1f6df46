// SPDX-License-Identifier: Apache-2.0
// The configuration that the command applied last. It may differ from the one in force: the commit
// may have failed, or another process may have committed or rolled back.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/element/apply.hpp"
#include "zot_conf.hpp"

namespace zotconf {

class applied_configuration {
 public:
  // Takes the configuration of a handle's slot, limited to the categories that the command
  // receives.
  applied_configuration(const zot_slot &slot, const category_set &categories);

  // Whether a slot has the same K.
  [[nodiscard]] bool is_in(const zot_slot &slot) const;

  // The changes from this configuration to another, given as a complete list. Sorted by category
  // and key.
  [[nodiscard]] std::vector<change_line> changes_to(const entries &whole) const;

 private:
  using name = std::pair<zot_category, std::string>;

  std::string k_;
  std::map<name, std::string> checksums_;
};

}  // namespace zotconf
