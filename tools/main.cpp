// SPDX-License-Identifier: Apache-2.0
#include <exception>
#include <iostream>

#include "cli/cli.hpp"

namespace {

int run(int argc, char **argv) {
  zotconf::command_line line;
  zotconf::add_all_commands(line);
  const int status = line.run(argc, argv, std::cout, std::cerr);
  std::cout.flush();
  if (!std::cout) {
    std::cerr << "zotconf: cannot write standard output\n";
    return zotconf::exit_failure;
  }
  return status;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception &error) {
    std::cerr << "zotconf: " << error.what() << '\n';
    return zotconf::exit_failure;
  }
}
