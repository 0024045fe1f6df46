// SPDX-License-Identifier: Apache-2.0
// The environment variables of the library, held against what it can use.
#pragma once

#include "tools/output/console.hpp"

namespace zotconf {

enum class use_of_service { none, asked };

// Warns of each variable whose value the library cannot use, and says what it uses instead.
// Variables that do not count for this command are left alone.
void warn_of_environment(const console &where, use_of_service use);

}  // namespace zotconf
