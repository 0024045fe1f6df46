// SPDX-License-Identifier: Apache-2.0
#include "tools/reference/explain.hpp"

#include <algorithm>
#include <array>
#include <ostream>

#include "tools/model/statuses.hpp"
#include "tools/output/error_text.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/json.hpp"
#include "tools/output/text_table.hpp"

namespace zotconf {
namespace {

constexpr size_t line_width = 80;

constexpr std::string_view document_begin =
    "# Statuses\n"
    "\n"
    "What each status of the library means, where the fault lies, what the state of the cache is\n"
    "afterwards, and what to do. `zotconf explain` prints the same on an element;\n"
    "`zotconf explain --markdown` prints this document.\n"
    "\n"
    "A negative status is an error. `zot_util_get_err_str()` returns the text of this table when "
    "the\n"
    "call recorded no text of its own; most calls record one that names the file or the address.\n"
    "K is the knowledge file, the manifest of a configuration; the GPB files are its content.\n";

// A section of the explanation of a status. Printed in this order.
struct aspect {
  std::string_view title;
  const char *key;
  std::string_view status_advice::*text;
};

constexpr std::array aspects = {aspect{"Meaning", "meaning", &status_advice::meaning},
                                aspect{"Retry", "retry", &status_advice::retry},
                                aspect{"Fault", "fault", &status_advice::fault},
                                aspect{"Cache", "cache", &status_advice::cache},
                                aspect{"What to do", "action", &status_advice::action}};

constexpr size_t title_width = 12;

// Prints the words after a title, wrapped and indented.
void print_wrapped(std::ostream &out, std::string_view words, size_t indent) {
  size_t column = indent;
  while (!words.empty()) {
    const size_t end = std::min(words.find(' '), words.size());
    if (column > indent && column + 1 + end > line_width) {
      out << '\n' << std::string(indent, ' ');
      column = indent;
    } else if (column > indent) {
      out << ' ';
      ++column;
    }
    out << words.substr(0, end);
    column += end;
    words.remove_prefix(std::min(end + 1, words.size()));
  }
  out << '\n';
}

void print_one(const console &where, const status_entry &entry) {
  std::ostream &out = where.out();
  out << where.paint(entry.name, colour::bold) << " (" << entry.advice->code << ')';
  if (entry.text) {
    out << ": " << *entry.text;
  }
  out << "\n\n";
  for (const aspect &one : aspects) {
    out << where.paint(one.title, colour::dim) << std::string(title_width - one.title.size(), ' ');
    print_wrapped(out, entry.advice->*one.text, title_width);
  }
  for (const status_cause &cause : entry.causes()) {
    out << '\n' << cause.call << "\n    ";
    print_wrapped(out, cause.when, 4);
  }
}

void print_all(const console &where) {
  text_table table({{"NUMBER", align::right}, {"NAME"}, {"MEANING"}});
  for (const status_entry &entry : all_statuses()) {
    const status_advice &advice = *entry.advice;
    table.add_row(
        {std::to_string(advice.code), std::string(entry.name), std::string(advice.meaning)});
  }
  table.print(where);
}

void fill(json_node item, const status_entry &entry) {
  item.set("name", entry.name).set("number", entry.advice->code).set("text", entry.text);
  for (const aspect &one : aspects) {
    item.set(one.key, entry.advice->*one.text);
  }
  json_node causes = item.array("causes");
  for (const status_cause &cause : entry.causes()) {
    causes.append().set("call", cause.call).set("when", cause.when);
  }
}

void print_json(std::ostream &out, std::span<const status_entry> chosen) {
  json_document document;
  json_node statuses = document.root().array("statuses");
  for (const status_entry &entry : chosen) {
    fill(statuses.append(), entry);
  }
  out << document.text();
}

void print_markdown(std::ostream &out) {
  out << document_begin << "\n| number | name | text |\n|---|---|---|\n";
  for (const status_entry &entry : all_statuses()) {
    out << "| " << entry.advice->code << " | " << entry.name << " | " << entry.text.value_or("")
        << " |\n";
  }
  for (const status_entry &entry : all_statuses()) {
    out << "\n## " << entry.name << " (" << entry.advice->code << ")\n\n";
    for (const aspect &one : aspects) {
      out << "- **" << one.title << "**: " << entry.advice->*one.text << '\n';
    }
    if (entry.causes().empty()) {
      continue;
    }
    out << "\n| returned by | when |\n|---|---|\n";
    for (const status_cause &cause : entry.causes()) {
      out << "| " << cause.call << " | " << cause.when << " |\n";
    }
  }
}

}  // namespace

int run_explain(const explain_options &options, const console &where) {
  if (options.markdown) {
    print_markdown(where.out());
    return exit_success;
  }
  if (options.status.empty()) {
    where.is_json() ? print_json(where.out(), all_statuses()) : print_all(where);
    return exit_success;
  }
  const status_entry *const found = find_status(options.status);
  if (found == nullptr) {
    tell_error(where.err(), "\"" + options.status + "\" is not a status", "zotconf explain");
    return exit_usage;
  }
  where.is_json() ? print_json(where.out(), {found, 1}) : print_one(where, *found);
  return exit_success;
}

}  // namespace zotconf
