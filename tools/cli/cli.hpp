// SPDX-License-Identifier: Apache-2.0
// The command line: the commands, their options and their help texts. The manual pages and the
// shell completion are generated from the same data.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/output/console.hpp"
#include "tools/output/exit_status.hpp"

namespace zotconf {

// The help of a command, without its options.
struct command_text {
  const char *name;
  const char *summary;   // one line
  const char *about;     // what the options do not explain; may be empty
  const char *examples;  // command lines, one per line
  std::vector<exit_status> exits;
};

class command_line {
 public:
  command_line();
  command_line(const command_line &) = delete;
  command_line &operator=(const command_line &) = delete;
  ~command_line();

  // Adds a command. `command` receives the options after the command line has filled them. Every
  // command also has --json and --help.
  template <class Options>
  CLI::App &add(const command_text &text, const std::shared_ptr<Options> &options,
                int (*command)(const Options &, const console &)) {
    return add_command(
        text, [options, command](const console &where) { return command(*options, where); });
  }

  // Parses the arguments, runs the command and returns an exit status.
  int run(int argc, char **argv, std::ostream &out, std::ostream &err);

  [[nodiscard]] const CLI::App &app() const { return app_; }
  // The texts of the commands, in the order in which they were added.
  [[nodiscard]] const std::vector<command_text> &texts() const { return texts_; }

 private:
  using action = std::function<int(const console &)>;

  CLI::App &add_command(const command_text &text, action chosen);

  CLI::App app_;
  std::vector<command_text> texts_;
  bool json_ = false;
  action chosen_;
};

// One function for each group of commands.
void add_service_commands(command_line &line);    // publish, sign, prune, serve
void add_element_commands(command_line &line);    // cycle, watch
void add_cache_commands(command_line &line);      // status, verify, forget
void add_look_commands(command_line &line);       // show, diff
void add_reference_commands(command_line &line);  // explain, categories
void add_probe_command(command_line &line);       // probe
void add_selftest_command(command_line &line);    // selftest
void add_relay_command(command_line &line);       // relay
void add_fleet_command(command_line &line);       // fleet

void add_all_commands(command_line &line);

// Makes a validator of a check that returns an empty text or an error.
CLI::Validator checked_by(std::string (*check)(std::string_view));

// Add the options that identify an element.
void add_subsys(CLI::App &command, std::string &subsys);
CLI::Option *add_index(CLI::App &command, std::string &index);

}  // namespace zotconf
