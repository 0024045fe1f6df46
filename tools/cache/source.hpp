// SPDX-License-Identifier: Apache-2.0
// Finds the K that a user names on the command line.
#pragma once

#include <string>

#include "tools/model/names.hpp"
#include "tools/model/stored_k.hpp"

namespace zotconf {

// `name` is a slot ("current", "last", "refused", "scratch"), a publication folder, or a K file.
// The checksum file next to a K file is read if there is one. `who` selects the element in a
// publication folder that has several; its index may be empty otherwise. Throws std::runtime_error
// when `name` is none of these.
stored_k read_source(const std::string &name, const element &who);

// The same, but also throws std::runtime_error with the library's text when K is missing or
// damaged.
stored_k read_good_source(const std::string &name, const element &who);

}  // namespace zotconf
