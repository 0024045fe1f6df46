// SPDX-License-Identifier: Apache-2.0
#include <map>

#include "tools/cli/cli.hpp"
#include "tools/element/cycle.hpp"
#include "tools/element/watch.hpp"
#include "tools/output/duration.hpp"

namespace zotconf {
namespace {

const command_text cycle_text = {
    .name = "cycle",
    .summary = "Get a configuration, apply it, commit or roll back",
    .about =
        "Only for a new configuration, CMD runs and the configuration is committed or rolled\n"
        "back. Exit status 0 of CMD commits, 1 to 125 roll back. If CMD cannot run (126, 127),\n"
        "if a signal ends it or if it takes longer than --apply-timeout, the configuration is\n"
        "neither committed nor rolled back, and the next get offers it again.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_REMOTE_PORT, ZOT_DEV_PATH.",
    .examples =
        "zotconf cycle --index 001122334455 --commit\n"
        "zotconf cycle --index 001122334455 --categories Wlan,Ap --apply ./apply.sh\n"
        "zotconf cycle --index 001122334455 --want cached --out in-force",
    .exits = {exit_success, exit_failure, exit_usage, exit_no_update, exit_same_as_corrupted,
              exit_rolled_back, exit_apply_failed}};

const command_text watch_text = {
    .name = "watch",
    .summary = "Keep an element up to date: get, apply, commit or roll back, forever",
    .about =
        "CMD runs for each new configuration. ZOTCONF_DIR is the path of a folder with the\n"
        "added and modified files, <Category>/<key>. ZOTCONF_CHANGES is the path of a JSON file\n"
        "that lists all changed entries. Exit status 0 commits, 1 to 125 roll back. If CMD\n"
        "cannot run (126, 127), if a signal ends it or if it takes longer than --apply-timeout,\n"
        "the configuration is neither committed nor rolled back, and CMD runs again after a\n"
        "pause. Durations are 500ms, 30s, 5m, 1h or 30d.\n\n"
        "While the service or CMD fails, the pauses grow from --backoff-min to --backoff-max.\n"
        "The first pause is random, between the shortest pause and twice that; for each next\n"
        "pause both bounds double.\n\n"
        "If a commit or rollback fails, the next get completes or undoes it; CMD does not run\n"
        "again for the same configuration. If another process has committed or rolled back\n"
        "instead, CMD gets the configuration in force, with the changes since the one that CMD\n"
        "accepted last.\n\n"
        "SIGINT and SIGTERM stop the command. CMD and all processes that it started get\n"
        "SIGTERM, and SIGKILL half a second later. The configuration that CMD was applying is\n"
        "neither committed nor rolled back, and the next start offers it again. A signal during\n"
        "a get takes effect after that get, and the transfer of files has no time limit; a\n"
        "second signal ends the command at once.\n\n"
        "A configuration that an earlier run committed is not an update: CMD does not run for\n"
        "it. If what CMD applied does not survive a restart, use --apply-cached-at-start: CMD\n"
        "runs once for the configuration in force, with the status of each entry relative to\n"
        "the configuration before it, and its exit status neither commits nor rolls back. CMD\n"
        "does not run if no entry is in force. In dev mode, each get returns the configuration\n"
        "as new.\n\n"
        "With --state, FILE has the state of the element as JSON: the configuration in force,\n"
        "the one that was rolled back and why, a commit that a start has undone, and why the\n"
        "element is failing. FILE is replaced at each change, and everybody may read it.\n"
        "`zotconf relay --element FILE` reports it. Without a place to write FILE, the command\n"
        "warns once and continues.\n\n"
        "Each change of state is one line on standard output, with --json one object. The\n"
        "output of CMD goes to standard error. The service manager is notified as NOTIFY_SOCKET\n"
        "and WATCHDOG_USEC request.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_REMOTE_PORT, ZOT_DEV_PATH,\n"
        "TMPDIR.",
    .examples =
        "zotconf watch --index 001122334455 --every 30s --apply ./apply.sh\n"
        "zotconf watch --index 001122334455 --every 5m --apply ./apply.sh --json",
    .exits = {exit_success, exit_failure, exit_usage}};

// The options of an element as given, before they are checked together.
struct element_words {
  cycle_options options;
  std::vector<std::string> categories = {"all"};
  std::string log_level = "off";
  std::string apply_timeout;
};

struct cycle_words : element_words {
  std::vector<std::string> want = {"added", "modified", "deleted"};
  std::string out;
  bool commit = false;
  bool roll_back = false;
};

struct watch_words : element_words {
  std::string every = "30s";
  std::string backoff_min = "1s";
  std::string backoff_max = "5m";
  bool apply_cached_at_start = false;
  std::string state;
};

const std::map<std::string, std::optional<uint32_t>> log_levels = {{"off", std::nullopt},
                                                                   {"error", ZOT_LOG_ERROR},
                                                                   {"warn", ZOT_LOG_WARN},
                                                                   {"info", ZOT_LOG_INFO},
                                                                   {"debug", ZOT_LOG_DEBUG}};

void resolve_element(element_words &words) {
  std::string wrong;
  const auto categories = parse_categories(words.categories, wrong);
  if (!categories) {
    throw CLI::ValidationError("--categories", "unknown category \"" + wrong + "\"");
  }
  words.options.categories = *categories;
  words.options.log_level = log_levels.at(words.log_level);
  words.options.apply_timeout = parse_duration(words.apply_timeout);
}

// Checks the options that depend on each other and fills in the rest.
void resolve(cycle_words &words) {
  resolve_element(words);
  cycle_options &options = words.options;
  std::string wrong;
  const auto want = parse_want(words.want, wrong);
  if (!want) {
    throw CLI::ValidationError("--want", "\"" + wrong + "\" is unknown or must be given alone");
  }
  options.want = *want;
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

int run_cycle_words(const cycle_words &words, const console &where) {
  return run_cycle(words.options, where);
}

int run_watch_words(const watch_words &words, const console &where) {
  const auto duration = [](const std::string &text) { return parse_duration(text).value(); };
  return run_watch({.element = words.options,
                    .every = duration(words.every),
                    .backoff_min = duration(words.backoff_min),
                    .backoff_max = duration(words.backoff_max),
                    .apply_cached_at_start = words.apply_cached_at_start,
                    .state = words.state},
                   where);
}

void add_element_options(CLI::App &command, element_words &words) {
  zot_parm_all defaults{};
  zot_util_init_conf_parm(&defaults);
  words.options.timeout = defaults.timeout;
  words.options.timeout_gpb = defaults.timeout_gpb;
  add_subsys(command, words.options.subsys);
  add_index(command, words.options.index)->required();
  command.add_option("--categories", words.categories, "all, or category names")
      ->delimiter(',')
      ->capture_default_str();
  command.add_option("--timeout", words.options.timeout, "seconds for K and checksum; 0: no limit")
      ->capture_default_str();
  command
      .add_option("--timeout-gpb", words.options.timeout_gpb,
                  "kept for adapters; the archive transfer has no limit")
      ->capture_default_str();
  command.add_option("--log-level", words.log_level, "what the library logs to standard error")
      ->check(CLI::IsMember(log_levels))
      ->capture_default_str();
}

CLI::Option *add_apply(CLI::App &command, element_words &words) {
  CLI::Option *const apply =
      command
          .add_option("--apply", words.options.command,
                      "shell command, with ZOTCONF_DIR and ZOTCONF_CHANGES in its environment: "
                      "commit when it exits 0, roll back when it exits 1 to 125")
          ->check([](const std::string &text) { return text.empty() ? "is empty" : ""; });
  command
      .add_option("--apply-timeout", words.apply_timeout,
                  "stop a command that takes longer; it counts as failed (default: no limit)")
      ->check(checked_by(check_duration))
      ->needs(apply);
  return apply;
}

void add_cycle(command_line &line) {
  const auto words = std::make_shared<cycle_words>();
  CLI::App &command = line.add(cycle_text, words, run_cycle_words);
  add_element_options(command, *words);
  command
      .add_option("--want", words->want, "added, modified, deleted, unchanged; or full; or cached")
      ->delimiter(',')
      ->capture_default_str();
  command.add_option(
      "--out", words->out,
      "folder for the files of the entries, which replace files of the same name; if only "
      "--apply needs it, a temporary one");
  auto *const apply = add_apply(command, *words);
  auto *const commit = command.add_flag("--commit", words->commit, "commit a new configuration");
  auto *const roll_back =
      command.add_flag("--roll-back", words->roll_back, "roll back a new configuration");
  commit->excludes(apply)->excludes(roll_back);
  roll_back->excludes(apply);
  command.parse_complete_callback([words] { resolve(*words); });
}

void add_duration(CLI::App &command, const char *name, std::string &words, const char *about) {
  command.add_option(name, words, about)->check(checked_by(check_duration))->capture_default_str();
}

void add_watch(command_line &line) {
  const auto words = std::make_shared<watch_words>();
  CLI::App &command = line.add(watch_text, words, run_watch_words);
  add_element_options(command, *words);
  add_apply(command, *words)->required();
  add_duration(command, "--every", words->every, "pause between two gets");
  add_duration(command, "--backoff-min", words->backoff_min, "shortest pause after a failure");
  add_duration(command, "--backoff-max", words->backoff_max, "longest pause after a failure");
  command.add_flag("--apply-cached-at-start", words->apply_cached_at_start,
                   "run CMD once for the configuration in force, at the start");
  command
      .add_option("--state", words->state,
                  "file that gets the state of the element as JSON at each change")
      ->check([](const std::string &text) { return text.empty() ? "is empty" : ""; });
  command.parse_complete_callback([words] {
    resolve_element(*words);
    if (parse_duration(words->backoff_min) > parse_duration(words->backoff_max)) {
      throw CLI::ValidationError("--backoff-min", "is longer than --backoff-max");
    }
  });
}

}  // namespace

void add_element_commands(command_line &line) {
  add_cycle(line);
  add_watch(line);
}

}  // namespace zotconf
