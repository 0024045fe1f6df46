// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/wrong_usage.hpp"

#include <algorithm>
#include <numeric>
#include <string_view>

namespace zotconf {
namespace {

constexpr size_t largest_distance = 2;

// The number of letters to add, remove or replace to turn one word into the other.
size_t edit_distance(std::string_view from, std::string_view to) {
  std::vector<size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < from.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < to.size(); ++j) {
      const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

// Returns the name that was probably meant; empty if none is similar.
std::string nearest(std::string_view word, const std::vector<std::string> &names) {
  std::string found;
  // A name that shares no letter with the word is not a suggestion.
  size_t best = std::min(largest_distance + 1, word.size());
  for (const std::string &name : names) {
    if (const size_t distance = edit_distance(word, name); distance < best) {
      best = distance;
      found = name;
    }
  }
  return found;
}

const CLI::App *find_command(const CLI::App &app, const std::string &name) {
  const auto commands = app.get_subcommands({});
  const auto found = std::ranges::find(commands, name, &CLI::App::get_name);
  return found != commands.end() ? *found : nullptr;
}

std::vector<std::string> command_names(const CLI::App &app) {
  std::vector<std::string> names = {"help"};
  for (const CLI::App *command : app.get_subcommands({})) {
    names.push_back(command->get_name());
  }
  return names;
}

std::vector<std::string> option_names(const CLI::App &app) {
  std::vector<std::string> names;
  for (const CLI::Option *option : app.get_options()) {
    const auto &own = option->get_lnames();
    names.insert(names.end(), own.begin(), own.end());
  }
  return names;
}

// Returns the first long option that the command does not have; empty if it has all. The value of
// an option is skipped.
std::string unknown_option(const CLI::App &command, const std::vector<std::string> &words) {
  for (size_t at = 0; at < words.size() && words[at] != "--"; ++at) {
    if (!words[at].starts_with("--")) {
      continue;
    }
    const size_t equals = words[at].find('=');
    std::string name = words[at].substr(0, equals);
    const CLI::Option *const option = command.get_option_no_throw(name);
    if (option == nullptr) {
      return name;
    }
    if (equals == std::string::npos && option->get_items_expected_min() > 0) {
      ++at;
    }
  }
  return "";
}

std::string question(const std::string &meant) {
  return meant.empty() ? "" : ": did you mean " + meant + "?";
}

}  // namespace

std::optional<wrong_usage> unknown_command(const CLI::App &app,
                                           const std::vector<std::string> &words) {
  if (words.empty()) {
    return wrong_usage{.what = "no command given", .command = "zotconf --help"};
  }
  const std::string &word = words.front();
  if (word.starts_with('-') || find_command(app, word) != nullptr) {
    return std::nullopt;
  }
  const std::string name = nearest(word, command_names(app));
  return wrong_usage{.what = "unknown command \"" + word + "\"" +
                             question(name.empty() ? "" : "`zotconf " + name + "`"),
                     .command = "zotconf --help"};
}

wrong_usage refused_words(const CLI::App &app, const std::vector<std::string> &words,
                          const CLI::ParseError &error) {
  const CLI::App *const found = find_command(app, words.front());
  const CLI::App &command = found != nullptr ? *found : app;
  const std::string name = found != nullptr ? found->get_name() : "";
  const std::string prefix = name.empty() ? "" : name + ": ";
  const std::string help = "zotconf " + name + (name.empty() ? "" : " ") + "--help";
  if (const std::string option = unknown_option(command, words); !option.empty()) {
    const std::string meant = nearest(option.substr(2), option_names(command));
    return {
        .what = prefix + "unknown option " + option + question(meant.empty() ? "" : "--" + meant),
        .command = help};
  }
  return {.what = prefix + error.what(), .command = help};
}

}  // namespace zotconf
