// SPDX-License-Identifier: Apache-2.0
// Programming errors of the caller: reported and ended in every build, whatever NDEBUG says.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace zot {

inline void require(bool holds, const char *expression, const char *source, const char *func) {
  if (holds) {
    return;
  }
  static_cast<void>(
      std::fprintf(stderr, "%s: %s: Assertion \"%s\" failed.\n", source, func, expression));
  std::abort();
}

}  // namespace zot
