// SPDX-License-Identifier: Apache-2.0
// Explanations for errors whose library text does not name the cause.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace zotconf {

// Printed for an element that has not received a configuration yet.
inline constexpr std::string_view no_configuration_yet = "the element has no configuration yet";

// Explains a failed get whose text has an HTTP status that is not an error: the response could not
// be stored in the folder. Empty for every other text.
std::string hint_of(std::string_view text, const std::filesystem::path &folder);

}  // namespace zotconf
