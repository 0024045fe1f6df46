// SPDX-License-Identifier: Apache-2.0
// The manual pages of section 1, generated from the texts and options of the command line.
#pragma once

#include <string>

#include "tools/cli/cli.hpp"

namespace zotconf {

// zotconf(1): what all commands share.
std::string program_page(const command_line &line);

// zotconf-COMMAND(1).
std::string command_page(const command_line &line, const command_text &text);

}  // namespace zotconf
