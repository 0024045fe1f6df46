// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace zot {

// Whether a text is absent or empty, which mean the same to every operation.
constexpr bool is_blank(const char *text) {
  return text == nullptr || *text == '\0';
}

}  // namespace zot
