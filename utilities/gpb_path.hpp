// SPDX-License-Identifier: Apache-2.0
// Splits the path of a GPB file, as K lists it, without copying.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zot {

struct gpb_path {
  std::string_view category;
  // Truncated to the length that a record keeps.
  std::string_view key;
  uint64_t version;
};

// Nothing for a path without three components.
std::optional<gpb_path> split_gpb_path(const char *path);

// The number of a category, or nothing for an unknown name.
std::optional<int32_t> category_of(std::string_view name);

}  // namespace zot
