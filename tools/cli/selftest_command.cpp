// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/cli.hpp"
#include "tools/cli/version.hpp"
#include "tools/selftest/selftest.hpp"

namespace zotconf {
namespace {

const command_text selftest_text = {
    .name = "selftest",
    .summary = "Run a whole cycle on this machine, to see that it works here",
    .about =
        "Works in a new folder below DIR or $TMPDIR (/tmp if it is not set): publishes files, "
        "serves "
        "them on a free\nport of 127.0.0.1, gets and commits, updates, rolls back, kills commits, "
        "starts without a service and\ndamages a file. It touches no other cache and needs no root "
        "rights, and about 2 MiB of room.\n\n"
        "The report begins with the machine, its commands and its room. Then it has a line for "
        "each "
        "step: \"ok\", or\n\"FAILED\" with the reason. After a failed step no other step runs. "
        "With --json each line is an object.\n\n"
        "Give a folder on the flash as DIR to test the file system that will hold the cache. A "
        "path "
        "with a blank or\nanother character that a shell interprets is refused. The command "
        "removes "
        "its folder at the end, and after\nSIGINT and SIGTERM. With --keep the folder stays; "
        "library.log in it has the messages of the library.\n\n"
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
  command.add_flag("--keep", options->keep, "leave the test's folder where it is");
}

}  // namespace zotconf
