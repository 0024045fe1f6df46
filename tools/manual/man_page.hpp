// SPDX-License-Identifier: Apache-2.0
// The manual pages of section 1, made from the command line's own texts and options.
#pragma once

#include <string>

#include "tools/cli/cli.hpp"

namespace zotconf {

// zotconf(1): what the commands share.
std::string program_page(const command_line &line);

// zotconf-COMMAND(1).
std::string command_page(const command_line &line, const command_text &text);

}  // namespace zotconf
