// SPDX-License-Identifier: Apache-2.0
// Reads a publication folder as a client sees it.
#pragma once

#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/model/names.hpp"
#include "tools/model/stored_k.hpp"

namespace zotconf {

// The latest K of an element in a publication folder.
stored_k read_published(const fs::path &publication, const element &who);

// The elements that have a K in a publication folder, sorted.
std::vector<element> published_elements(const fs::path &publication);

}  // namespace zotconf
