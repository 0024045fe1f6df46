// SPDX-License-Identifier: Apache-2.0
// Runs this program in place of a command: it records its descriptors and then executes the real
// command.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zot::test {

[[nodiscard]] bool is_spied_command(std::string_view program);
// Returns only when the real command cannot be run.
int report_and_run(char **argv);

struct spied_command {
  std::string name;
  std::map<int, std::string> descriptors;
};

// Puts this program in place of the commands on PATH. What the commands were given is recorded in a
// folder.
void spy_on_commands(const std::string &folder);
[[nodiscard]] std::vector<spied_command> spied_commands(const std::string &folder);

}  // namespace zot::test
