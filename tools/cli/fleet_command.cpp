// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/cli.hpp"
#include "tools/fleet/fleet_status.hpp"
#include "tools/model/names.hpp"
#include "tools/output/duration.hpp"
#include "tools/output/percentage.hpp"

namespace zotconf {
namespace {

const command_text fleet_text = {
    .name = "fleet",
    .summary = "Show how many elements of a fleet have their published configuration in force",
    .about =
        "PUB is a publication folder, REPORTS the folder with the reports that the elements'\n"
        "relays send, SUBSYS/INDEX.json. The elements are counted by publication, that is, by\n"
        "the config ID of their K (knowledge file), and by state:\n\n"
        "  silent    no report, none that can be used, or none for --silent-after\n"
        "  in force  the published K is in force\n"
        "  refused   the element rolled the published K back, or its relay did not accept it\n"
        "  failing   a get, apply or commit of the element fails, or its relay has a problem\n"
        "  waiting   none of these\n\n"
        "The first state that applies counts, in this order. Undone are elements that undid an\n"
        "interrupted commit. The path of a report decides whose it is. The command changes\n"
        "nothing in PUB and REPORTS, and takes no lock. Durations are 500ms, 30s, 5m, 1h or\n"
        "30d.\n\n"
        "It exits with 9 if more elements of a publication refused it than --max-refused\n"
        "allows; if not, with 12 if fewer elements of a publication have it in force than\n"
        "--min-in-force requires; if not, with 0.",
    .examples =
        "zotconf fleet pub reports\n"
        "zotconf fleet pub reports --config-id 3f2504e0-4f89-41d3-9a0c-0305e82c3301 \\\n"
        "    --min-in-force 95% --max-refused 2%\n"
        "zotconf fleet pub reports --html fleet.html --json",
    .exits = {exit_success, exit_failure, exit_usage, exit_fleet_refused, exit_fleet_pending}};

// The options as given, before they are parsed.
struct fleet_words {
  rollout_options options;
  std::string max_refused;
  std::string min_in_force;
  std::string silent_after = "3d";
};

int run_fleet_words(const fleet_words &words, const console &where) {
  rollout_options options = words.options;
  options.max_refused = parse_percentage(words.max_refused);
  options.min_in_force = parse_percentage(words.min_in_force);
  options.silent_after = parse_duration(words.silent_after).value();
  return run_fleet_status(options, where);
}

}  // namespace

void add_fleet_command(command_line &line) {
  const auto words = std::make_shared<fleet_words>();
  rollout_options &options = words->options;
  CLI::App &command = line.add(fleet_text, words, run_fleet_words);
  command.add_option("PUB", options.publication, "publication folder")
      ->required()
      ->check(CLI::ExistingDirectory);
  command.add_option("REPORTS", options.reports, "folder with the reports of the elements")
      ->required()
      ->check(CLI::ExistingDirectory);
  command.add_option("--config-id", options.config_id, "only the publication with this config ID")
      ->check(checked_by(check_uuid));
  command
      .add_option("--max-refused", words->max_refused,
                  "exit with 9 if more elements of a publication refused it (default: no limit)")
      ->check(checked_by(check_percentage));
  command
      .add_option("--min-in-force", words->min_in_force,
                  "exit with 12 if fewer elements of a publication have it in force (default: no "
                  "limit)")
      ->check(checked_by(check_percentage));
  command
      .add_option("--silent-after", words->silent_after,
                  "an element whose last report is older is silent")
      ->check(checked_by(check_duration))
      ->capture_default_str();
  command.add_option("--html", options.html, "file to which the same is written as a page");
}

}  // namespace zotconf
