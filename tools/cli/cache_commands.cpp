// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/forget.hpp"
#include "tools/cache/status.hpp"
#include "tools/cache/verify.hpp"
#include "tools/cli/cli.hpp"

namespace zotconf {
namespace {

const command_text status_text = {
    .name = "status",
    .summary = "Show the state of the cache and what the next get would do",
    .about =
        "Needs no service and writes nothing. The files of the configuration in force are\n"
        "checked up to the first bad one, as at the start of a process: if one is bad, no\n"
        "configuration is in force. After an interrupted commit, the slots are shown as the\n"
        "next start restores them. A warning is printed if an update of the size of the\n"
        "configuration in force would not fit on the medium next to it.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_REMOTE_PORT, ZOT_DEV_PATH.",
    .examples = "zotconf status\nzotconf status --json",
    .exits = {exit_success, exit_failure, exit_usage}};

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
  line.add(status_text, std::make_shared<status_options>(), run_status);
  add_verify(line);
  line.add(forget_text, std::make_shared<forget_options>(), run_forget);
}

}  // namespace zotconf
