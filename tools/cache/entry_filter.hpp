// SPDX-License-Identifier: Apache-2.0
// A filter for the entries of a K.
#pragma once

#include <string>

#include "tools/model/manifest.hpp"
#include "zot_conf.h"

namespace zotconf {

struct entry_filter {
  entry_filter() { zot_catset_set_all(&categories); }

  // Whether the filter lets an entry pass.
  [[nodiscard]] bool takes(const published_file &file) const;

  zot_catset categories{};
  std::string key_glob;  // a shell pattern; empty: any key
};

}  // namespace zotconf
