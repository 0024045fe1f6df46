// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/entry_filter.hpp"

#include <fnmatch.h>

namespace zotconf {

bool entry_filter::takes(const published_file &file) const {
  return zot_catset_has(&categories, file.category) &&
         (key_glob.empty() || ::fnmatch(key_glob.c_str(), file.key.c_str(), 0) == 0);
}

}  // namespace zotconf
