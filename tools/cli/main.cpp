// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "tools/cli/cli.hpp"
#include "tools/output/plain_text.hpp"

namespace {

// Opens closed standard streams on /dev/null. Otherwise the next file opened would get the number
// of one, and output would be written into that file.
void occupy_standard_streams() {
  int fd = 0;
  do {
    fd = ::open("/dev/null", O_RDONLY);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  ::close(fd);
}

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
  occupy_standard_streams();
  try {
    return run(argc, argv);
  } catch (const std::exception &error) {
    std::cerr << "zotconf: " << zotconf::printable(error.what()) << '\n';
    return zotconf::exit_failure;
  }
}
