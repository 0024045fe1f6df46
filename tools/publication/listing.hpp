// SPDX-License-Identifier: Apache-2.0
// Finds the K files of a publication folder without reading them.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/names.hpp"

namespace zotconf {

// Identity, size and modification time of a file; all zeros if there is none.
using file_stamp = std::array<int64_t, 5>;

struct k_listing {
  element who;
  file_stamp k{};
  file_stamp checksum{};

  [[nodiscard]] bool is_same(const k_listing &other) const {
    return k == other.k && checksum == other.checksum;
  }
};

// Returns the elements that have a K in the publication folder, sorted. Throws fs::filesystem_error
// if the folder cannot be read.
std::vector<k_listing> list_k_files(const fs::path &publication);

}  // namespace zotconf
