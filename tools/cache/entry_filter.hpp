// SPDX-License-Identifier: Apache-2.0
// Which entries of a K a user wants to see.
#pragma once

#include <string>

#include "tools/model/manifest.hpp"
#include "zot_conf.h"

namespace zotconf {

struct entry_filter {
  entry_filter() { zot_catset_set_all(&categories); }

  // Whether the filter takes an entry.
  [[nodiscard]] bool takes(const published_file &file) const;

  zot_catset categories{};
  std::string key_glob;  // a pattern of the shell; empty: any key
};

}  // namespace zotconf
