// SPDX-License-Identifier: Apache-2.0
// Checks the environment variables of the library.
#pragma once

#include "tools/output/console.hpp"

namespace zotconf {

enum class use_of_service { none, asked };

// Warns of each variable whose value the library cannot use, and prints what is used instead. Skips
// variables that this command does not use.
void warn_of_environment(const console &where, use_of_service use);

}  // namespace zotconf
