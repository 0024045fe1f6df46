// SPDX-License-Identifier: Apache-2.0
// What the library's texts leave unsaid, in words of the program.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace zotconf {

// Whoever has not got a configuration yet is told so in these words.
inline constexpr std::string_view no_configuration_yet = "the element has no configuration yet";

// Why a get has failed that names an HTTP status which is no failure by itself: the answer has to
// be stored in the folder, and could not be. Empty for every other text.
std::string unsaid_of(std::string_view text, const std::filesystem::path &folder);

}  // namespace zotconf
