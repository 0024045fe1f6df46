// SPDX-License-Identifier: Apache-2.0
// Takes named files out of a gzip-compressed tar archive and nothing else.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tools/files/file_io.hpp"

namespace zotconf {

// A file that the archive should hold.
struct wanted_member {
  fs::path to;           // where it goes; its folder is there
  uint64_t longest = 0;  // bytes; what exceeds them is cut one byte later
};

// Unpacks the regular files whose names, without leading slashes, are keys of `wanted`; an archive
// may hold anything else, links and devices included, and none of it is written. Throws
// std::runtime_error at damage of the archive or a failure to write; what came before it is there.
void unpack(const fs::path &archive, const std::map<std::string, wanted_member> &wanted);

}  // namespace zotconf
