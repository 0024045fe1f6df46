// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/diff.hpp"
#include "tools/cache/show.hpp"
#include "tools/cli/cli.hpp"
#include "tools/element/cycle.hpp"

namespace zotconf {
namespace {

const command_text show_text = {
    .name = "show",
    .summary = "Show the metadata and the entries of a K",
    .about =
        "K (knowledge file) is a slot of the cache (current, last, refused, scratch), a\n"
        "publication folder, or a K file; write ./current for a file of that name. K is\n"
        "compared with its checksum file; a K file only if a checksum file is next to it.\n"
        "Entries are sorted by category number and key.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_DEV_PATH.",
    .examples =
        "zotconf show current\n"
        "zotconf show pub --index 001122334455 --category Wlan,Ap\n"
        "zotconf show /tmp/zot/subsys.k --key 'guest-*' --json",
    .exits = {exit_success, exit_failure, exit_usage}};

const command_text diff_text = {
    .name = "diff",
    .summary = "Show what changes from one K to another",
    .about =
        "A and B are slots of the cache (current, last, refused, scratch), publication folders,\n"
        "or K files (knowledge files). Entries are compared as a get compares them: by\n"
        "category, key and version. If the clusters differ, equal entries count as modified.\n\n"
        "Environment: ZOT_PREFIX_CONF_ROOT, ZOT_PREFIX_TMP_ROOT, ZOT_DEV_PATH.",
    .examples =
        "zotconf diff last current\n"
        "zotconf diff current pub --index 001122334455 --stat\n"
        "zotconf diff old.k new.k --category Wlan --exit-code",
    .exits = {exit_success, exit_failure, exit_usage, exit_different}};

void add_element(CLI::App &command, element &who) {
  add_subsys(command, who.subsys);
  add_index(command, who.index)
      ->description("the element's index, for a publication folder that holds several");
}

// Adds both filter options. An unknown category is a usage error.
void add_filter(CLI::App &command, entry_filter &filter) {
  command
      .add_option_function<std::vector<std::string>>(
          "--category,--categories",
          [&filter](const std::vector<std::string> &names) {
            std::string wrong;
            const auto categories = parse_categories(names, wrong);
            if (!categories) {
              throw CLI::ValidationError("--category", "unknown category \"" + wrong + "\"");
            }
            filter.categories = *categories;
          },
          "only these categories")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("NAME[,NAME]");
  command
      .add_option("--key", filter.key_glob, "only keys that match, as in a shell: *, ? and [...]")
      ->type_name("GLOB");
}

void add_show(command_line &line) {
  const auto options = std::make_shared<show_options>();
  CLI::App &command = line.add(show_text, options, run_show);
  command.add_option("K", options->source, "slot, publication folder or K file")->required();
  add_element(command, options->who);
  add_filter(command, options->filter);
}

void add_diff(command_line &line) {
  const auto options = std::make_shared<diff_options>();
  CLI::App &command = line.add(diff_text, options, run_diff);
  command.add_option("A", options->from, "the K before: slot, publication folder or K file")
      ->required();
  command.add_option("B", options->to, "the K after")->required();
  add_element(command, options->who);
  add_filter(command, options->filter);
  command.add_flag("--all", options->all, "show unchanged entries too");
  command.add_flag("--stat", options->stat, "show totals by category instead of entries");
  command.add_flag("--exit-code", options->exit_code, "exit with 8 when an entry differs");
}

}  // namespace

void add_look_commands(command_line &line) {
  add_show(line);
  add_diff(line);
}

}  // namespace zotconf
