// SPDX-License-Identifier: Apache-2.0
// Parts of the pages that the program writes itself.
#pragma once

#include <string>
#include <string_view>

namespace zotconf {

// A text for an element or a quoted attribute. Control characters become "?".
std::string escaped(std::string_view text);

}  // namespace zotconf
