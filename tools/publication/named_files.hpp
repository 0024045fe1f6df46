// SPDX-License-Identifier: Apache-2.0
// What the K files of a publication folder name, all together.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_set>

#include "tools/files/file_io.hpp"

namespace zotconf {

struct named_files {
  size_t ks = 0;
  std::unordered_set<std::string> names;  // as member_name() has them
};

// <Category>/<key>/<version>
std::string member_name(const std::string &category, const std::string &key,
                        const std::string &version);

// Throws a refusal for a folder that no publisher has made.
void check_publication(const fs::path &publication);

// Reads every K below file/knowledge. Throws a refusal that names the first one that cannot be
// read, is no K, or is not what its checksum file announces: nobody knows what such a K names.
named_files read_named_files(const fs::path &publication);

}  // namespace zotconf
