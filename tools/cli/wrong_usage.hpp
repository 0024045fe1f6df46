// SPDX-License-Identifier: Apache-2.0
// What is wrong with a command line, in one line, and the command that helps.
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

// Of words whose first one stands for a command and names none.
std::optional<wrong_usage> unknown_command(const CLI::App &app,
                                           const std::vector<std::string> &words);

// Of words that the parser has refused. A mistyped option comes before what is missing for it.
wrong_usage refused_words(const CLI::App &app, const std::vector<std::string> &words,
                          const CLI::ParseError &error);

}  // namespace zotconf
