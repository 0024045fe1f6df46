// SPDX-License-Identifier: Apache-2.0
#include "tools/manual/man_page.hpp"

#include <algorithm>
#include <array>
#include <cctype>

#include "tools/output/version.hpp"

namespace zotconf {
namespace {

struct variable {
  const char *name;
  const char *meaning;
};

constexpr std::array<variable, 6> variables = {{
    {"ZOT_PREFIX_CONF_ROOT", "prefix of the persistent cache, PREFIX/writable/zot/"},
    {"ZOT_PREFIX_TMP_ROOT", "prefix of the scratch directory, PREFIX/tmp/zot"},
    {"ZOT_REMOTE_PORT", "port of the service on the loopback host; 8087 when it is not set"},
    {"ZOT_DEV_PATH",
     "development: the configuration is read from this directory, nothing is fetched"},
    {"NO_COLOR", "if set to any value: no colours and no progress line"},
    {"TMPDIR", "parent of temporary folders"},
}};

// Escapes what the formatter interprets: a backslash, a dash, and a dot or quote at the start of a
// line.
std::string escaped(std::string_view text) {
  std::string result;
  bool at_start = true;
  for (const char c : text) {
    if (at_start && (c == '.' || c == '\'')) {
      result += "\\&";
    }
    if (c == '\\') {
      result += "\\e";
    } else if (c == '-') {
      result += "\\-";
    } else {
      result += c;
    }
    at_start = c == '\n';
  }
  return result;
}

std::string heading(const std::string &title, const std::string &what) {
  std::string name = title;
  std::ranges::transform(name, name.begin(),
                         [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return ".TH " + escaped(name) + " 1 " + release_date + " \"zotconf " + version +
         "\" \"User commands\"\n.SH NAME\n" + escaped(title) + " \\- " + escaped(what) + "\n";
}

// Turns empty lines into paragraph breaks.
std::string paragraphs(std::string_view text) {
  std::string result = escaped(text);
  for (size_t at = result.find("\n\n"); at != std::string::npos; at = result.find("\n\n", at)) {
    result.replace(at, 2, "\n.PP\n");
  }
  return result + "\n";
}

std::string exit_section(const std::vector<exit_status> &exits) {
  std::string result = ".SH EXIT STATUS\n";
  for (const exit_status status : exits) {
    result += ".TP\n.B " + std::to_string(status) + "\n" + escaped(meaning_of(status)) + "\n";
  }
  return result;
}

std::string environment_section() {
  std::string result = ".SH ENVIRONMENT\n";
  for (const variable &each : variables) {
    result += ".TP\n.B " + std::string(each.name) + "\n" + escaped(each.meaning) + "\n";
  }
  return result;
}

// Removes the type in "TEXT:DIR", which tells a reader nothing more.
std::string value_name(const CLI::Option &option) {
  if (option.get_items_expected_max() == 0) {
    return "";
  }
  const std::string type = option.get_type_name();
  return type.substr(0, type.find_first_of(": "));
}

// Removes the brackets around the default of a list, because a user does not type them.
std::string plain_list(std::string text) {
  if (text.size() > 1 && text.front() == '[' && text.back() == ']') {
    text = text.substr(1, text.size() - 2);
  }
  return text;
}

std::string option_entry(const CLI::Option &option) {
  std::string names = escaped(option.get_name(option.get_positional(), true));
  for (size_t at = names.find(','); at != std::string::npos; at = names.find(',', at + 3)) {
    names.replace(at, 1, ", ");
  }
  std::string entry = ".TP\n\\fB" + names + "\\fR";
  if (const std::string value = value_name(option); !value.empty() && !option.get_positional()) {
    entry += " \\fI" + escaped(value) + "\\fR";
  }
  entry += "\n" + escaped(option.get_description());
  if (const std::string preset = plain_list(option.get_default_str()); !preset.empty()) {
    entry += " (default: " + escaped(preset) + ")";
  }
  return entry + (option.get_required() ? " (required)\n" : "\n");
}

std::string synopsis(const CLI::App &command) {
  std::string result = ".SH SYNOPSIS\n.B zotconf " + command.get_name() + "\n[\\fIOPTIONS\\fR]";
  for (const CLI::Option *option : command.get_options()) {
    if (option->get_positional()) {
      const std::string name = "\\fI" + escaped(option->get_name(true, false)) + "\\fR";
      result += option->get_required() ? " " + name : " [" + name + "]";
    }
  }
  return result + "\n";
}

std::string examples_section(const command_text &text) {
  return ".SH EXAMPLES\n.nf\n" + escaped(text.examples) + "\n.fi\n";
}

}  // namespace

std::string program_page(const command_line &line) {
  std::string page = heading("zotconf", "configurations of managed network elements");
  page += ".SH SYNOPSIS\n.B zotconf\n\\fICOMMAND\\fR [\\fIOPTIONS\\fR]\n.SH DESCRIPTION\n" +
          escaped(line.app().get_description()) + "\n.SH COMMANDS\n";
  std::vector<exit_status> exits;
  for (const command_text &text : line.texts()) {
    page += ".TP\n.BR zotconf\\-" + escaped(text.name) + " (1)\n" + escaped(text.summary) + "\n";
  }
  page += ".TP\n.B help \\fR[\\fICOMMAND\\fR]\nShow the help of a command, or of the program\n";
  std::ranges::transform(exit_meanings, std::back_inserter(exits), &exit_meaning::status);
  page += exit_section(exits) + environment_section();
  return page + ".SH SEE ALSO\n.BR zot_conf (3)\n";
}

std::string command_page(const command_line &line, const command_text &text) {
  const CLI::App &command = *line.app().get_subcommand(text.name);
  std::string page = heading(std::string("zotconf-") + text.name, text.summary);
  page += synopsis(command) + ".SH DESCRIPTION\n" + escaped(text.summary) + ".\n";
  if (*text.about != '\0') {
    page += ".PP\n" + paragraphs(text.about);
  }
  page += ".SH OPTIONS\n";
  for (const CLI::Option *option : command.get_options()) {
    page += option_entry(*option);
  }
  return page + examples_section(text) + exit_section(text.exits) + environment_section() +
         ".SH SEE ALSO\n.BR zotconf (1),\n.BR zot_conf (3)\n";
}

}  // namespace zotconf
