// SPDX-License-Identifier: Apache-2.0
// The path of a GPB file as K lists it, taken apart where it stands.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zot {

struct gpb_path {
  std::string_view category;
  // As many characters as are kept of a key.
  std::string_view key;
  uint64_t version;
};

// Nothing for a path without three components.
std::optional<gpb_path> split_gpb_path(const char *path);

// The number of a category, or nothing for a name that is none.
std::optional<int32_t> category_of(std::string_view name);

}  // namespace zot
