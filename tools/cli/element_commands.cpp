// SPDX-License-Identifier: Apache-2.0
#include <map>

#include "cli.hpp"
#include "cycle.hpp"

namespace zotconf {
namespace {

const command_text cycle_text = {
    .name = "cycle",
    .summary = "Get a configuration, apply it, commit or roll back",
    .about =
        "CMD runs, and a configuration is committed or rolled back, on a new configuration "
        "only.\n\nEnvironment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_REMOTE_PORT, "
        "ZOT_DEV_PATH.",
    .examples =
        "zotconf cycle --index 001122334455 --commit\n"
        "zotconf cycle --index 001122334455 --categories Wlan,Ap --apply ./apply.sh\n"
        "zotconf cycle --index 001122334455 --want cached --out in-force",
    .exits = {exit_success, exit_failure, exit_usage, exit_no_update, exit_same_as_corrupted,
              exit_rolled_back}};

// What the cycle's options say before they are checked against each other.
struct cycle_words {
  cycle_options options;
  std::vector<std::string> categories = {"all"};
  std::vector<std::string> want = {"added", "modified", "deleted"};
  std::string out;
  std::string log_level = "off";
  bool commit = false;
  bool roll_back = false;
};
const std::map<std::string, std::optional<uint32_t>> log_levels = {{"off", std::nullopt},
                                                                   {"error", ZOT_LOG_ERROR},
                                                                   {"warn", ZOT_LOG_WARN},
                                                                   {"info", ZOT_LOG_INFO},
                                                                   {"debug", ZOT_LOG_DEBUG}};

// Checks what one option alone cannot tell and fills in the rest.
void resolve(cycle_words &words) {
  cycle_options &options = words.options;
  std::string wrong;
  const auto categories = parse_categories(words.categories, wrong);
  if (!categories) {
    throw CLI::ValidationError("--categories", "unknown category \"" + wrong + "\"");
  }
  const auto want = parse_want(words.want, wrong);
  if (!want) {
    throw CLI::ValidationError("--want", "\"" + wrong + "\" is unknown or has to stand alone");
  }
  options.categories = *categories;
  options.want = *want;
  options.log_level = log_levels.at(words.log_level);
  if (!words.out.empty()) {
    options.out = words.out;
  }
  if (!options.command.empty()) {
    options.decide = verdict::by_command;
  } else if (words.commit || words.roll_back) {
    options.decide = words.commit ? verdict::commit : verdict::roll_back;
  }
  if (options.decide != verdict::none && *want == ZOT_STAT_CACHED) {
    throw CLI::ValidationError("--want",
                               "cached entries are not applied, committed or rolled back");
  }
}

int run_words(const cycle_words &words, const console &where) {
  return run_cycle(words.options, where.out(), where.err());
}

void add_cycle(command_line &line) {
  const auto words = std::make_shared<cycle_words>();
  zot_parm_all defaults{};
  zot_util_init_conf_parm(&defaults);
  words->options.timeout = defaults.timeout;
  words->options.timeout_gpb = defaults.timeout_gpb;

  CLI::App &command = line.add(cycle_text, words, run_words);
  add_subsys(command, words->options.subsys);
  add_index(command, words->options.index)->required();
  command.add_option("--categories", words->categories, "all, or category names")
      ->delimiter(',')
      ->capture_default_str();
  command
      .add_option("--want", words->want, "added, modified, deleted, unchanged; or full; or cached")
      ->delimiter(',')
      ->capture_default_str();
  command.add_option("--out", words->out,
                     "folder for the entries' bytes; a temporary one when only --apply needs it");
  auto *const apply =
      command
          .add_option("--apply", words->options.command,
                      "shell command, with ZOTCONF_DIR in its environment: commit when it exits 0, "
                      "else roll back")
          ->check([](const std::string &text) { return text.empty() ? "is empty" : ""; });
  auto *const commit = command.add_flag("--commit", words->commit, "commit a new configuration");
  auto *const roll_back =
      command.add_flag("--roll-back", words->roll_back, "roll a new configuration back");
  commit->excludes(apply)->excludes(roll_back);
  roll_back->excludes(apply);
  command
      .add_option("--timeout", words->options.timeout, "seconds for K and checksum; 0: no limit")
      ->capture_default_str();
  command
      .add_option("--timeout-gpb", words->options.timeout_gpb,
                  "kept for adapters; the archive transfer has no limit")
      ->capture_default_str();
  command.add_option("--log-level", words->log_level, "what the library logs to standard error")
      ->check(CLI::IsMember(log_levels))
      ->capture_default_str();
  command.parse_complete_callback([words] { resolve(*words); });
}

}  // namespace

void add_element_commands(command_line &line) {
  add_cycle(line);
}

}  // namespace zotconf
