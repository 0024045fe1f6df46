// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>

namespace zot {

// Whether a text is null or empty, which means the same to every operation.
constexpr bool is_blank(const char *text) {
  return text == nullptr || *text == '\0';
}

// The value of a variable. Null if it is unset or empty, which means the same.
inline const char *environment(const char *name) {
  const char *const value = std::getenv(name);
  return is_blank(value) ? nullptr : value;
}

}  // namespace zot
