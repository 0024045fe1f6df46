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
        "Works in a folder of its own below DIR or $TMPDIR (/tmp without it): publishes files, "
        "serves them on a\nfree port of 127.0.0.1, gets and commits, updates, rolls back, kills "
        "commits, starts without a service and\ndamages a file. It touches no other cache, needs "
        "no rights of root and about 2 MiB of room.\n\n"
        "First come the machine, its commands and its room; then a line for each step: \"ok\", or "
        "\"FAILED\" with\nthe reason. After a step that failed no other runs. With --json each "
        "line is an object.\n\n"
        "Give a folder of the flash as DIR to test the file system that will hold the cache. The "
        "path of the folder\nmust have no character that a shell interprets, such as a blank. "
        "The folder is removed at the end, and also by\nSIGINT and SIGTERM, unless --keep is "
        "given. It has the log of the library, library.log.\n\n"
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
