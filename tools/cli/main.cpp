// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "tools/cli/cli.hpp"
#include "tools/output/error_text.hpp"

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
    zotconf::tell_error(std::cerr, "cannot write standard output");
    return zotconf::exit_failure;
  }
  return status;
}

}  // namespace

int main(int argc, char **argv) {
  occupy_standard_streams();
  try {
    return run(argc, argv);
  } catch (const zotconf::advised_error &error) {
    zotconf::tell_error(std::cerr, error.what(), error.command());
    return zotconf::exit_failure;
  } catch (const std::exception &error) {
    zotconf::tell_error(std::cerr, error.what());
    return zotconf::exit_failure;
  }
}
