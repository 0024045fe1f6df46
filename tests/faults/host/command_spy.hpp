// SPDX-License-Identifier: Apache-2.0
// Runs this program in place of a command: it reports its arguments and then executes the real
// command.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zot::test {

[[nodiscard]] bool is_spied_command(std::string_view program);
// Only returns when the real command cannot be run.
int report_and_run(char **argv);

struct spied_command {
  std::string name;
  std::map<int, std::string> descriptors;
};

// Puts itself in front of the commands for this process; what they were given is collected below a
// folder.
void spy_on_commands(const std::string &folder);
[[nodiscard]] std::vector<spied_command> spied_commands(const std::string &folder);

}  // namespace zot::test
