// SPDX-License-Identifier: Apache-2.0
#include "categories.hpp"
#include "cli.hpp"

namespace zotconf {
namespace {

const command_text categories_text = {.name = "categories",
                                      .summary = "List the categories with their numbers",
                                      .about = "",
                                      .examples = "zotconf categories\nzotconf categories --json",
                                      .exits = {exit_success, exit_usage}};

}  // namespace

void add_reference_commands(command_line &line) {
  line.add(categories_text, std::make_shared<categories_options>(), run_categories);
}

}  // namespace zotconf
