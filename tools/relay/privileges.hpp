// SPDX-License-Identifier: Apache-2.0
// A process that reads what comes from a network does not run as root.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"

namespace zotconf {

// Makes this process one of `user`, with the groups of that user. If the folder `store` is missing,
// creates it first and gives it to the user. Without a user, does nothing. Throws
// std::runtime_error if the process is root and no other user is given, or if it may not become
// this user. Must be called before any thread is started.
void give_up_root(const std::string &user, const fs::path &store);

}  // namespace zotconf
