// SPDX-License-Identifier: Apache-2.0
// What a command has applied last. It need not be what is in force: the commit may have failed, or
// another process may have decided otherwise.
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
  // What a slot of a handle holds, in the categories that the command gets.
  applied_configuration(const zot_slot &slot, const category_set &categories);

  // Whether a slot holds the same K.
  [[nodiscard]] bool is_in(const zot_slot &slot) const;

  // What changes from this configuration to another one, which is listed whole; by category and
  // key.
  [[nodiscard]] std::vector<change_line> changes_to(const entries &whole) const;

 private:
  using name = std::pair<zot_category, std::string>;

  std::string k_;
  std::map<name, std::string> checksums_;
};

}  // namespace zotconf
