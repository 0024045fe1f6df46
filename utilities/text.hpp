// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>

namespace zot {

// Whether a text is absent or empty, which mean the same to every operation.
constexpr bool is_blank(const char *text) {
  return text == nullptr || *text == '\0';
}

// Null for a variable that is unset or empty, which mean the same.
inline const char *environment(const char *name) {
  const char *const value = std::getenv(name);
  return is_blank(value) ? nullptr : value;
}

}  // namespace zot
