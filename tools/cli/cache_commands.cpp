// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/forget.hpp"
#include "tools/cache/status.hpp"
#include "tools/cache/verify.hpp"
#include "tools/cli/cli.hpp"
#include "tools/probe/service_url.hpp"
#include "tools/relay/relay_status.hpp"

namespace zotconf {
namespace {

const command_text status_text = {
    .name = "status",
    .summary =
        "Show the state of the cache and what the next get would do, or the state of a relay",
    .about =
        "Needs no service and writes nothing. The files of the configuration in force are\n"
        "checked up to the first bad one, as at the start of a process: if one is bad, no\n"
        "configuration is in force. After an interrupted commit, the slots are shown as the\n"
        "next start restores them. A warning is printed if an update of the size of the\n"
        "configuration in force would not fit on the medium next to it.\n\n"
        "With --relay, the cache is not read. The command asks a running `zotconf relay` for its\n"
        "state: the publication in service, the last contact with its server, and problems with\n"
        "what to do about them. It exits with 0 if a publication is in service, the last contact\n"
        "is not longer ago than the relay's --max-age, and there is no problem; with 11 if not;\n"
        "and with 1 if no relay answers within five seconds.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_REMOTE_PORT, ZOT_DEV_PATH.",
    .examples =
        "zotconf status\n"
        "zotconf status --json\n"
        "zotconf status --relay http://127.0.0.1:8087",
    .exits = {exit_success, exit_failure, exit_usage, exit_relay_problem}};

const command_text verify_text = {
    .name = "verify",
    .summary = "Check every file of the cache, and repair bad ones on request",
    .about =
        "Compares each K (knowledge file) with its checksum file and checks its content.\n"
        "Compares each file of the configuration in force and of the scratch area with its K.\n"
        "For the last and the refused configuration, the cache has only K and checksum. Files\n"
        "that no K lists are noted but are not damage. Damage of the scratch area is harmless,\n"
        "because a new configuration overwrites it; it counts only with --strict. An\n"
        "interrupted commit is reported, and the configuration that the next start restores is\n"
        "checked. If the cache is empty or not readable, the command prints an error and exits\n"
        "with 1.\n\n"
        "With --repair, the library first undoes an interrupted commit. The command then\n"
        "requests the bad files of the persistent cache from the service, verifies them and\n"
        "replaces each one in one step; good files are not touched. K is restored if the\n"
        "service still offers the K in force. While another process commits, nothing is\n"
        "written.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_REMOTE_PORT, ZOT_DEV_PATH.",
    .examples =
        "zotconf verify\n"
        "zotconf verify --strict --json\n"
        "zotconf verify --repair --index 001122334455",
    .exits = {exit_success, exit_failure, exit_usage, exit_damaged}};

const command_text forget_text = {
    .name = "forget",
    .summary = "Forget a rollback, so that the next get accepts the same configuration",
    .about =
        "Removes what the cache keeps of the configuration that was rolled back last. While the\n"
        "service offers it, the next get returns it as new. The configuration in force stays.\n"
        "Running processes, such as zotconf watch, need not be stopped. The command fails while\n"
        "another process works in the cache, and after an interrupted commit.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_DEV_PATH.",
    .examples = "zotconf forget",
    .exits = {exit_success, exit_failure, exit_usage}};

struct status_words {
  std::string relay;  // empty: the cache is read
};

int run_status_words(const status_words &words, const console &where) {
  return words.relay.empty() ? run_status(status_options{}, where)
                             : run_relay_status(words.relay, where);
}

void add_status(command_line &line) {
  const auto words = std::make_shared<status_words>();
  line.add(status_text, words, run_status_words)
      .add_option("--relay", words->relay, "ask the relay at this address: http://HOST:PORT")
      ->check(checked_by(check_service_url));
}

void add_verify(command_line &line) {
  const auto options = std::make_shared<verify_options>();
  CLI::App &command = line.add(verify_text, options, run_verify);
  command.add_flag("--strict", options->strict, "count damage of the scratch area");
  add_subsys(command, options->who.subsys);
  auto *const index = add_index(command, options->who.index);
  command.add_flag("--repair", options->repair, "fetch bad files again from the service")
      ->needs(index);
}

}  // namespace

void add_cache_commands(command_line &line) {
  add_status(line);
  add_verify(line);
  line.add(forget_text, std::make_shared<forget_options>(), run_forget);
}

}  // namespace zotconf
