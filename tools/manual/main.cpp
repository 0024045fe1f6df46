// SPDX-License-Identifier: Apache-2.0
// usage: zotconf_manual FOLDER
// Writes the manual pages and the shell completion into a folder.
#include <exception>
#include <iostream>

#include "tools/files/file_io.hpp"
#include "tools/manual/completion.hpp"
#include "tools/manual/man_page.hpp"

namespace {

void write(const zotconf::fs::path &path, const std::string &text) {
  zotconf::replace_file(path, text, zotconf::durability::buffered);
}

void write_all(const zotconf::fs::path &folder) {
  zotconf::command_line line;
  zotconf::add_all_commands(line);
  zotconf::fs::create_directories(folder);
  write(folder / "zotconf.1", program_page(line));
  for (const zotconf::command_text &text : line.texts()) {
    write(folder / (std::string("zotconf-") + text.name + ".1"), command_page(line, text));
  }
  write(folder / "zotconf.bash", bash_completion(line));
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2 || *argv[1] == '-') {
    std::cerr << "usage: zotconf_manual FOLDER\n";
    return zotconf::exit_usage;
  }
  try {
    write_all(argv[1]);
    return zotconf::exit_success;
  } catch (const std::exception &error) {
    std::cerr << "zotconf_manual: " << error.what() << '\n';
    return zotconf::exit_failure;
  }
}
