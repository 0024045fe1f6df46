// SPDX-License-Identifier: Apache-2.0
// The K that a user names on the command line.
#pragma once

#include <string>

#include "tools/model/names.hpp"
#include "tools/model/stored_k.hpp"

namespace zotconf {

// What a user named: a slot ("current", "last", "refused", "scratch"), a publication folder, or a
// K file, with its checksum file when one lies beside it. `who` names the element of a publication
// that has several; its index may be empty otherwise. Throws std::runtime_error when `name` is
// none of them.
stored_k read_source(const std::string &name, const element &who);

// The same, good. Throws std::runtime_error with the library's text otherwise.
stored_k read_good_source(const std::string &name, const element &who);

}  // namespace zotconf
