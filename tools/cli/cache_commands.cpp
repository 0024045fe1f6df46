// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/forget.hpp"
#include "tools/cache/status.hpp"
#include "tools/cache/verify.hpp"
#include "tools/cli/cli.hpp"

namespace zotconf {
namespace {

const command_text status_text = {
    .name = "status",
    .summary = "Tell what lies in the cache and what the next get would do",
    .about =
        "Needs no service and writes nothing. The files of the configuration in force are checked "
        "up to the\nfirst bad one, as a starting process does: with it nothing is in force. After "
        "an interrupted commit\nthe slots are what the next start puts back. It warns when an "
        "update of the size of the configuration\nin force would not fit beside it.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_REMOTE_PORT, ZOT_DEV_PATH.",
    .examples = "zotconf status\nzotconf status --json",
    .exits = {exit_success, exit_failure, exit_usage}};

const command_text verify_text = {
    .name = "verify",
    .summary = "Check every file of the cache, and fetch again what is bad",
    .about =
        "Each K is held against its checksum file and its content is checked; each file of the "
        "configuration\nin force and of the scratch area is held against its K. Of the last and "
        "the refused configuration\nthe cache keeps K and checksum only. Files that no K names "
        "are noted and are no damage. Damage of the\nscratch area is harmless, because a new "
        "configuration overwrites it: it counts with --strict only.\nA commit that was interrupted "
        "is a finding, and what the next start puts back is checked.\nWhere nothing lies in the "
        "cache, it says so and ends with 1, as it does when it may not read it.\n\n--repair lets "
        "the library undo an interrupted commit. Then it asks the service for what is bad in "
        "the\npersistent "
        "cache, verifies it and puts it in place in one step; what is good is not touched. K is\n"
        "restored when the service still offers the K in force. While another process commits, "
        "nothing is\nwritten.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_REMOTE_PORT, ZOT_DEV_PATH.",
    .examples =
        "zotconf verify\n"
        "zotconf verify --strict --json\n"
        "zotconf verify --repair --index 001122334455",
    .exits = {exit_success, exit_failure, exit_usage, exit_damaged}};

const command_text forget_text = {
    .name = "forget",
    .summary = "Take back a roll-back: the same configuration is offered again",
    .about =
        "Removes what the cache keeps of the configuration that was rolled back last. While the "
        "service offers it,\nthe next get takes it as new. The configuration in force stays. A "
        "process that runs, such as zotconf\nwatch, need not be stopped. It fails while another "
        "process works in the cache, and after an interrupted\ncommit.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_DEV_PATH.",
    .examples = "zotconf forget",
    .exits = {exit_success, exit_failure, exit_usage}};

void add_verify(command_line &line) {
  const auto options = std::make_shared<verify_options>();
  CLI::App &command = line.add(verify_text, options, run_verify);
  command.add_flag("--strict", options->strict, "count damage of the scratch area");
  add_subsys(command, options->who.subsys);
  auto *const index = add_index(command, options->who.index);
  command.add_flag("--repair", options->repair, "fetch again what is bad, from the service")
      ->needs(index);
}

}  // namespace

void add_cache_commands(command_line &line) {
  line.add(status_text, std::make_shared<status_options>(), run_status);
  add_verify(line);
  line.add(forget_text, std::make_shared<forget_options>(), run_forget);
}

}  // namespace zotconf
