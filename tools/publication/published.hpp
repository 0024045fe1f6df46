// SPDX-License-Identifier: Apache-2.0
// What a publication folder holds, read as a client finds it.
#pragma once

#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/names.hpp"
#include "tools/model/stored_k.hpp"

namespace zotconf {

// The latest K of an element in a publication folder.
stored_k read_published(const fs::path &publication, const element &who);

// The elements that a publication folder has a K for, sorted.
std::vector<element> published_elements(const fs::path &publication);

}  // namespace zotconf
