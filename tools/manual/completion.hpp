// SPDX-License-Identifier: Apache-2.0
// The bash completion, generated from the options of the command line.
#pragma once

#include <string>

#include "tools/cli/cli.hpp"

namespace zotconf {

std::string bash_completion(const command_line &line);

}  // namespace zotconf
