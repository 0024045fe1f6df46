// SPDX-License-Identifier: Apache-2.0
#include "tools/manual/completion.hpp"

#include <array>

#include "zot_conf.h"

namespace zotconf {
namespace {

// The words that complete an option's value.
struct value_rule {
  std::string_view option;
  std::string_view words;  // "@dir", "@file", "@categories", "@command", or the words themselves
};

constexpr std::array<value_rule, 21> value_rules = {{
    {"--out", "@dir"},
    {"--fleet", "@dir"},
    {"--dir", "@dir"},
    {"--apply", "@command"},
    {"--subsys", "AP CP DP"},
    {"--categories", "@categories"},
    {"--category", "@categories"},
    {"--want", "added modified deleted unchanged full cached"},
    {"--log-level", "off error warn info debug"},
    {"--every", "10s 30s 1m 5m"},
    {"--backoff-min", "1s 5s"},
    {"--grace", "0 1h 24h"},
    {"--max-removed", "10% 50% 100%"},
    {"--backoff-max", "1m 5m"},
    {"--bind", "127.0.0.1 ::1"},
    {"--port", "0 8087"},
    {"--pid-file", "@file"},
    {"--log", "@file"},
    {"--timeout", "0 5 30"},
    {"--polls", "20 1000"},
    {"--timeout-gpb", "0 30"},
}};

// Completion of the operands, by command.
constexpr std::array<value_rule, 6> operand_rules = {{
    {"publish", "@dir"},
    {"prune", "@dir"},
    {"serve", "@dir"},
    {"show", "@source"},
    {"diff", "@source"},
    {"explain", "@statuses"},
}};

std::string categories() {
  std::string words;
  for (int32_t category = 0; category < ZOT_CAT_COUNT; ++category) {
    words.append(zot_util_cat2str(category)).append(" ");
  }
  return words + "all";
}

std::string statuses() {
  std::string words;
#define ZOTCONF_STATUS_WORD(name, code, text) words.append(#name " ");
  ZOT_STATUS_MAP(ZOTCONF_STATUS_WORD)
#undef ZOTCONF_STATUS_WORD
  words.pop_back();
  return words;
}

std::string words_reply(std::string_view words) {
  return "mapfile -t COMPREPLY < <(compgen -W '" + std::string(words) + "' -- \"$word\")";
}

std::string reply_of(std::string_view rule) {
  if (rule == "@dir") {
    return "mapfile -t COMPREPLY < <(compgen -d -- \"$word\")";
  }
  if (rule == "@file") {
    return "mapfile -t COMPREPLY < <(compgen -f -- \"$word\")";
  }
  if (rule == "@command") {
    return "mapfile -t COMPREPLY < <(compgen -c -f -- \"$word\")";
  }
  if (rule == "@source") {
    return "mapfile -t COMPREPLY < <(compgen -W 'current last refused scratch' -f -- \"$word\")";
  }
  if (rule == "@categories") {
    return words_reply(categories());
  }
  return words_reply(rule == "@statuses" ? statuses() : std::string(rule));
}

std::string options_of(const CLI::App &command) {
  std::string words;
  for (const CLI::Option *option : command.get_options()) {
    for (const std::string &name : option->get_lnames()) {
      words.append("--").append(name).append(" ");
    }
  }
  words.pop_back();
  return words;
}

std::string names_of(const command_line &line) {
  std::string words;
  for (const command_text &text : line.texts()) {
    words.append(text.name).append(" ");
  }
  return words + "help --help --version";
}

}  // namespace

std::string bash_completion(const command_line &line) {
  std::string script =
      "# SPDX-License-Identifier: Apache-2.0\n"
      "# bash completion of zotconf\n\n"
      "_zotconf() {\n"
      "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}\n"
      "  if ((COMP_CWORD == 1)); then\n    ";
  script += words_reply(names_of(line)) + "\n    return\n  fi\n  case $before in\n";
  for (const value_rule &rule : value_rules) {
    script += "    " + std::string(rule.option) + ")\n      " + reply_of(rule.words) +
              "\n      return\n      ;;\n";
  }
  script += "  esac\n  if [[ $word == -* ]]; then\n    case ${COMP_WORDS[1]} in\n";
  for (const command_text &text : line.texts()) {
    script += "      " + std::string(text.name) + ") " +
              words_reply(options_of(*line.app().get_subcommand(text.name))) + " ;;\n";
  }
  script += "    esac\n    return\n  fi\n  case ${COMP_WORDS[1]} in\n";
  for (const value_rule &rule : operand_rules) {
    script += "    " + std::string(rule.option) + ") " + reply_of(rule.words) + " ;;\n";
  }
  script += "    help) " + words_reply(names_of(line)) + " ;;\n";
  return script + "  esac\n}\n\ncomplete -o filenames -F _zotconf zotconf\n";
}

}  // namespace zotconf
