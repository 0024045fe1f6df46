// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/cli.hpp"
#include "tools/reference/categories.hpp"
#include "tools/reference/explain.hpp"

namespace zotconf {
namespace {

const command_text explain_text = {
    .name = "explain",
    .summary = "Explain a status of the library",
    .about =
        "Prints the meaning of the status, whether a retry can help, where the fault lies, the\n"
        "state of the cache and what to do. Without STATUS, lists all statuses.",
    .examples =
        "zotconf explain\nzotconf explain -8\nzotconf explain ZOT_ERR_TIMEOUT\n"
        "zotconf explain corrupted --json",
    .exits = {exit_success, exit_usage}};

const command_text categories_text = {.name = "categories",
                                      .summary = "List the categories with their numbers",
                                      .about = "",
                                      .examples = "zotconf categories\nzotconf categories --json",
                                      .exits = {exit_success, exit_usage}};

void add_explain(command_line &line) {
  const auto options = std::make_shared<explain_options>();
  CLI::App &command = line.add(explain_text, options, run_explain);
  auto *const status = command.add_option(
      "STATUS", options->status, "number, or name with or without ZOT_ERR_, in any letter case");
  command.add_flag("--markdown", options->markdown, "print the document docs/errors.md")
      ->excludes(status);
}

}  // namespace

void add_reference_commands(command_line &line) {
  add_explain(line);
  line.add(categories_text, std::make_shared<categories_options>(), run_categories);
}

}  // namespace zotconf
