// SPDX-License-Identifier: Apache-2.0
// Compares an archive with the files that were requested.
#pragma once

#include <cstdint>
#include <span>

#include "tools/model/stored_k.hpp"

namespace zotconf {

// The largest archive with these files that the library accepts.
uint64_t largest_archive(std::span<const listed_file> files);

// Throws std::runtime_error unless the archive has exactly these files, with the bytes that K
// states, and nothing else but folders; throws stopped_by_signal. Unpacks them below `folder`,
// which must be empty; no path of a file may have a component "..".
void expect_archive(const fs::path &archive, std::span<const listed_file> files,
                    const fs::path &folder);

}  // namespace zotconf
