// SPDX-License-Identifier: Apache-2.0
// A command-line error in one line, and the command that helps.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

namespace zotconf {

struct wrong_usage {
  std::string what;
  std::string command;
};

// For words whose first one should be a command but is unknown.
std::optional<wrong_usage> unknown_command(const CLI::App &app,
                                           const std::vector<std::string> &words);

// For words that the parser has rejected. A mistyped option is reported before a missing one.
wrong_usage refused_words(const CLI::App &app, const std::vector<std::string> &words,
                          const CLI::ParseError &error);

}  // namespace zotconf
