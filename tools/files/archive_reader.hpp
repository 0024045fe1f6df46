// SPDX-License-Identifier: Apache-2.0
// Extracts the wanted files from a gzip-compressed tar archive and nothing else.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tools/files/file_io.hpp"

namespace zotconf {

// A file to extract from the archive.
struct wanted_member {
  fs::path to;           // the folder must exist
  uint64_t longest = 0;  // bytes; a longer file is cut one byte later
};

// Extracts the regular files whose names, without leading slashes, are keys of `wanted`. Ignores
// all other members, such as links and devices. Throws std::runtime_error when the archive is
// damaged or a write fails; files extracted before that stay.
void unpack(const fs::path &archive, const std::map<std::string, wanted_member> &wanted);

}  // namespace zotconf
