// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/host/command_spy.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/faults/host/process_state.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view commands[] = {"cp", "rm", "tar"};
constexpr const char *folder_variable = "FAULTS_HOST_SPY";

std::string name_of(std::string_view program) {
  return fs::path(program).filename();
}

}  // namespace

bool is_spied_command(std::string_view program) {
  return std::ranges::find(commands, name_of(program)) != std::end(commands);
}

int report_and_run(char **argv) {
  const std::string name = name_of(argv[0]);
  // Read before this program opens its own file.
  const std::map<int, std::string> given = descriptors_of();
  if (const char *const folder = std::getenv(folder_variable); folder != nullptr) {
    std::ofstream out(fs::path(folder) / (name + "." + std::to_string(::getpid())));
    for (const auto &[fd, target] : given) {
      out << fd << ' ' << target << '\n';
    }
  }
  for (const char *const where : {"/bin/", "/usr/bin/"}) {
    ::execv((where + name).c_str(), argv);
  }
  return 126;
}

void spy_on_commands(const std::string &folder) {
  const fs::path programs = fs::path(folder) / "bin";
  fs::create_directories(programs);
  const fs::path self = fs::read_symlink("/proc/self/exe");
  for (const std::string_view name : commands) {
    fs::create_symlink(self, programs / name);
  }
  const char *const before = std::getenv("PATH");
  ::setenv("PATH", (programs.string() + ":" + (before != nullptr ? before : "")).c_str(), 1);
  ::setenv(folder_variable, folder.c_str(), 1);
}

std::vector<spied_command> spied_commands(const std::string &folder) {
  std::vector<spied_command> all;
  for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
    if (entry.is_directory()) {
      continue;
    }
    spied_command one{entry.path().stem(), {}};
    std::ifstream in(entry.path());
    int fd = 0;
    for (std::string target; in >> fd && std::getline(in >> std::ws, target);) {
      one.descriptors.emplace(fd, target);
    }
    all.push_back(std::move(one));
  }
  return all;
}

}  // namespace zot::test
