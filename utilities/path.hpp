// SPDX-License-Identifier: Apache-2.0
// Joined paths in fixed buffers.
#pragma once

#include <cstdio>

#include "zot_conf.h"

namespace zot {

// "root/name". A path that does not fit becomes empty, so that no file call ever uses a truncated
// path, which would name something else.
class joined_path {
 public:
  joined_path(const char *root, const char *name) {
    const int length = std::snprintf(text_, sizeof text_, "%s/%s", root, name);
    if (length < 0 || static_cast<size_t>(length) >= sizeof text_) {
      text_[0] = '\0';
    }
  }

  [[nodiscard]] const char *c_str() const { return text_; }

 private:
  char text_[ZOT_PATH_SIZE];
};

}  // namespace zot
