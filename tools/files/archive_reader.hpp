// SPDX-License-Identifier: Apache-2.0
// Lists the members of a gzip-compressed tar archive, and extracts the wanted files and nothing
// else.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"

namespace zotconf {

enum class member_kind { file, folder, other };

struct archive_member {
  std::string name;  // as the archive states it
  member_kind kind = member_kind::file;
  bool has_set_id = false;  // a set-user-ID or set-group-ID bit
};

// Reads the archive to its end. Throws std::runtime_error when it is damaged, is not compressed
// with gzip, or has a member of more than `longest` bytes.
std::vector<archive_member> members_of(const fs::path &archive, uint64_t longest);

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
