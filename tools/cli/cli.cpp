// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/cli.hpp"

#include <algorithm>
#include <ostream>

#include "tools/cli/wrong_usage.hpp"
#include "tools/model/names.hpp"
#include "tools/output/error_text.hpp"
#include "tools/output/version.hpp"

namespace zotconf {
namespace {

constexpr const char *about_program =
    "Publishes, serves, receives and inspects configurations of managed network elements.";

std::string indented(std::string_view lines) {
  std::string result;
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    result.append("  ").append(lines.substr(0, end)).append("\n");
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return result;
}

std::string footer_of(const command_text &text) {
  std::string footer;
  if (*text.about != '\0') {
    footer.append(text.about).append("\n\n");
  }
  footer.append("Examples:\n").append(indented(text.examples)).append("\nExit status:\n");
  for (const exit_status status : text.exits) {
    footer.append("  ").append(std::to_string(status)).append("  ").append(meaning_of(status)) +=
        '\n';
  }
  return footer;
}

// `help` and `help COMMAND` are the same as --help and COMMAND --help.
std::vector<std::string> words_of(int argc, char **argv) {
  std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  if (words.empty() || words.front() != "help") {
    return words;
  }
  words.erase(words.begin());
  words.insert(words.empty() ? words.end() : words.begin() + 1, "--help");
  return words;
}

int tell_wrong_usage(std::ostream &err, const wrong_usage &wrong) {
  tell_error(err, wrong.what, wrong.command);
  return exit_usage;
}

}  // namespace

command_line::command_line() : app_(about_program, "zotconf") {
  app_.require_subcommand(1);
  app_.footer(
      "K is the knowledge file, the manifest of a configuration; the GPB files are its content.\n"
      "zotconf help COMMAND, or zotconf COMMAND --help, shows the options, examples and exit\n"
      "statuses of a command.");
  app_.set_version_flag("--version", std::string("zotconf ") + version);
}

command_line::~command_line() = default;

CLI::App &command_line::add_command(const command_text &text, action chosen) {
  CLI::App &command = *app_.add_subcommand(text.name, text.summary);
  command.footer(footer_of(text));
  command.add_flag("--json", json_, "print the result as JSON");
  command.final_callback([this, chosen = std::move(chosen)] { chosen_ = chosen; });
  texts_.push_back(text);
  return command;
}

int command_line::run(int argc, char **argv, std::ostream &out, std::ostream &err) {
  const std::vector<std::string> words = words_of(argc, argv);
  if (const auto wrong = unknown_command(app_, words)) {
    return tell_wrong_usage(err, *wrong);
  }
  try {
    app_.parse(std::vector<std::string>(words.rbegin(), words.rend()));
  } catch (const CLI::Success &help) {
    return app_.exit(help, out, err);
  } catch (const CLI::ParseError &error) {
    return tell_wrong_usage(err, refused_words(app_, words, error));
  }
  console_style style = style_of_terminal();
  style.json = json_;
  return chosen_(console(out, err, style));
}

void add_all_commands(command_line &line) {
  add_service_commands(line);
  add_relay_command(line);
  add_fleet_command(line);
  add_element_commands(line);
  add_cache_commands(line);
  add_look_commands(line);
  add_reference_commands(line);
  add_probe_command(line);
  add_selftest_command(line);
}

CLI::Validator checked_by(std::string (*check)(std::string_view)) {
  return {[check](std::string &value) {
            const std::string wrong = check(value);
            return wrong.empty() ? wrong : "\"" + value + "\" " + wrong;
          },
          ""};
}

void add_subsys(CLI::App &command, std::string &subsys) {
  command.add_option("--subsys", subsys, "sub-system: AP, CP or DP")
      ->check(checked_by(check_subsys))
      ->capture_default_str();
}

CLI::Option *add_index(CLI::App &command, std::string &index) {
  return command.add_option("--index", index, "the element's index, an access point's MAC address")
      ->check(checked_by(check_index));
}

}  // namespace zotconf
