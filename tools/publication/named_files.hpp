// SPDX-License-Identifier: Apache-2.0
// All files that the K files of a publication folder name.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_set>

#include "tools/files/file_io.hpp"

namespace zotconf {

struct named_files {
  size_t ks = 0;
  std::unordered_set<std::string> names;  // in the form of member_name()
};

// Returns "<Category>/<key>/<version>".
std::string member_name(const std::string &category, const std::string &key,
                        const std::string &version);

// Throws a refusal when the folder is not a publication folder.
void check_publication(const fs::path &publication);

// Reads every K below file/knowledge. Throws a refusal that names the first one that cannot be
// read, is not a valid K, or differs from its checksum file: the files it names would be unknown.
named_files read_named_files(const fs::path &publication);

}  // namespace zotconf
