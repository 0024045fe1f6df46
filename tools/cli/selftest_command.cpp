// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/cli.hpp"
#include "tools/output/version.hpp"
#include "tools/selftest/selftest.hpp"

namespace zotconf {
namespace {

const command_text selftest_text = {
    .name = "selftest",
    .summary = "Run a complete cycle on this machine, to check that it works here",
    .about =
        "Works in a new folder in DIR or $TMPDIR (/tmp if it is not set): publishes files,\n"
        "serves them on a free port of 127.0.0.1, gets and commits, updates, rolls back, kills\n"
        "commits, starts without a service and damages a file. It touches no other cache, and\n"
        "needs no root privileges and about 2 MiB of free space.\n\n"
        "The report begins with the machine, its commands and its free space. Then it has a\n"
        "line for each step: \"ok\", or \"FAILED\" with the reason. After a failed step, the\n"
        "remaining steps do not run. With --json, each line is an object.\n\n"
        "To test the file system of the cache, give a folder on the flash as DIR. A path with a\n"
        "blank or another character that a shell interprets is refused. The command removes its\n"
        "folder at the end, and after SIGINT and SIGTERM. With --keep the folder stays; its\n"
        "file library.log has the messages of the library.\n\n"
        "Environment: TMPDIR.",
    .examples =
        "zotconf selftest\n"
        "zotconf selftest --dir /writable --json",
    .exits = {exit_success, exit_failure, exit_usage}};

}  // namespace

void add_selftest_command(command_line &line) {
  const auto options = std::make_shared<selftest_options>();
  options->version = version;
  options->release_date = release_date;
  CLI::App &command = line.add(selftest_text, options, run_selftest);
  command.add_option("--dir", options->dir, "folder of the file system to test")
      ->check(CLI::ExistingDirectory);
  command.add_flag("--keep", options->keep, "keep the folder of the test");
}

}  // namespace zotconf
