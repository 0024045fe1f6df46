// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/cli.hpp"
#include "tools/probe/probe.hpp"
#include "tools/probe/service_url.hpp"

namespace zotconf {
namespace {

constexpr unsigned most_polls = 1000000;
constexpr unsigned longest_timeout = 3600;

const command_text probe_text = {
    .name = "probe",
    .summary = "Check a service against the formats that the library expects",
    .about =
        "Sends the requests that the library sends, and checks each answer: K (the knowledge "
        "file) and its checksum,\narchives of files, unknown names, and whether an idle or "
        "half-sent request of another client delays an\nanswer. docs/formats.md describes what a "
        "service has to answer. The element of --index must have a\nconfiguration at the "
        "service.\n\n"
        "Each check prints a line: \"ok\", \"FAILED\" with what came instead, or \"not run\" with "
        "the reason. With --json\neach line is an object. Publish nothing for the element until "
        "the last check begins. That check, polls, gets\nboth files --polls times; publish "
        "during it to see whether the service replaces them together.\n\n"
        "The library has no time limit for an archive. The probe stops waiting after twelve times "
        "--timeout without\na byte.\n\n"
        "Environment: TMPDIR.",
    .examples =
        "zotconf probe http://127.0.0.1:8087 --index 001122334455\n"
        "zotconf probe http://127.0.0.1:8087 --index 001122334455 --polls 1000 --json",
    .exits = {exit_success, exit_failure, exit_usage}};

}  // namespace

void add_probe_command(command_line &line) {
  const auto options = std::make_shared<probe_options>();
  CLI::App &command = line.add(probe_text, options, run_probe);
  command.add_option("URL", options->url, "the service: http://HOST:PORT")
      ->required()
      ->check(checked_by(check_service_url));
  add_subsys(command, options->who.subsys);
  add_index(command, options->who.index)->required();
  command.add_option("--polls", options->polls, "how often the last check gets both files")
      ->check(CLI::Range(1U, most_polls))
      ->capture_default_str();
  command.add_option("--timeout", options->timeout, "seconds for K and checksum, each")
      ->check(CLI::Range(1U, longest_timeout))
      ->capture_default_str();
}

}  // namespace zotconf
