// SPDX-License-Identifier: Apache-2.0
// The K files of a publication folder, found without reading one.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/names.hpp"

namespace zotconf {

// Which file it is, how long, and when it changed; zeros: there is none.
using file_stamp = std::array<int64_t, 5>;

struct k_listing {
  element who;
  file_stamp k{};
  file_stamp checksum{};

  [[nodiscard]] bool is_same(const k_listing &other) const {
    return k == other.k && checksum == other.checksum;
  }
};

// The elements that a publication folder has a K for, sorted. Throws fs::filesystem_error when the
// folder cannot be read.
std::vector<k_listing> list_k_files(const fs::path &publication);

}  // namespace zotconf
