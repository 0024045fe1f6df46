// SPDX-License-Identifier: Apache-2.0
// The completion of the bash shell, made from the command line's own options.
#pragma once

#include <string>

#include "tools/cli/cli.hpp"

namespace zotconf {

std::string bash_completion(const command_line &line);

}  // namespace zotconf
