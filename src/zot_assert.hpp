// SPDX-License-Identifier: Apache-2.0
// Checks for programming errors of the caller. A failed check is reported and aborts the process in
// every build, with or without NDEBUG.
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
