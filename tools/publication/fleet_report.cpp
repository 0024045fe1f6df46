// SPDX-License-Identifier: Apache-2.0
#include "tools/publication/fleet_report.hpp"

#include <algorithm>
#include <ostream>
#include <span>

#include "tools/output/error_text.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"
#include "tools/output/text_table.hpp"

namespace zotconf {
namespace {

template <class T>
std::span<const T> first_of(const std::vector<T> &all) {
  return std::span(all).first(std::min(all.size(), most_listed));
}

void print_changes_of(const console &where, const fleet_report &report) {
  text_table table({{"INDEX"},
                    {"NEW", align::right},
                    {"CHANGED", align::right},
                    {"SAME", align::right},
                    {"REMOVED", align::right}});
  for (const element_changes &each : report.changes) {
    table.add_row({each.index, std::to_string(each.added), std::to_string(each.changed),
                   std::to_string(each.same), std::to_string(each.removed)});
  }
  table.print(where);
}

void print_fleet(const console &where, const fleet_report &report) {
  if (report.dry_run && !report.changes.empty()) {
    print_changes_of(where, report);
  }
  if (report.fleet_size) {
    where.out() << "wave: " << report.elements << " of " << *report.fleet_size << " elements\n";
  }
  where.out() << report.result() << ": " << report.elements << " elements, " << report.published
              << (report.dry_run ? " to publish, " : " published, ")
              << report.elements - report.published << " unchanged, " << report.files
              << (report.dry_run ? " files to write, " : " files written, ") << report.bytes
              << (report.is_signed ? " bytes, signed\n" : " bytes\n");
}

void set_wave(json_node root, const fleet_report &report) {
  if (report.fleet_size) {
    root.object("wave").set("elements", report.elements).set("of", *report.fleet_size);
  }
  root.set_missing({"wave"});
}

void set_lists(json_node root, const fleet_report &report) {
  root.set("left_out_total", report.left_out.size());
  json_node left_out = root.array("left_out");
  for (const fs::path &path : first_of(report.left_out)) {
    left_out.append(path.string());
  }
  root.set("refused_total", report.refused.size());
  json_node refused = root.array("refused");
  for (const refused_part &each : first_of(report.refused)) {
    refused.append().set("index", stated(each.index)).set("reason", each.reason);
  }
}

void set_changes_of(json_node list, const fleet_report &report) {
  for (const element_changes &each : report.changes) {
    list.append()
        .set("index", each.index)
        .set("new", each.added)
        .set("changed", each.changed)
        .set("same", each.same)
        .set("removed", each.removed);
  }
}

void write_fleet_json(const console &where, const fleet_report &report) {
  json_document document;
  json_node root = document.root();
  std::string word = report.result();
  std::ranges::replace(word, ' ', '_');
  root.set("result", word)
      .set("elements", report.elements)
      .set("published", report.published)
      .set("unchanged", report.refused.empty() ? report.elements - report.published : 0)
      .set("written", report.files)
      .set("bytes", report.bytes)
      .set("signed", report.is_signed);
  set_wave(root, report);
  set_lists(root, report);
  if (report.dry_run) {
    set_changes_of(root.array("changes"), report);
  }
  where.out() << document.text();
}

}  // namespace

const char *fleet_report::result() const {
  if (!refused.empty()) {
    return "refused";
  }
  if (published == 0) {
    return "unchanged";
  }
  return dry_run ? "would publish" : "published";
}

void tell_fleet_problems(const console &where, const fleet_report &report) {
  const auto more = [](size_t count) { return "and " + std::to_string(count) + " more"; };
  if (!where.is_json()) {
    for (const fs::path &path : first_of(report.left_out)) {
      where.err() << "zotconf: skipped: " << printable(path.string()) << '\n';
    }
    if (report.left_out.size() > most_listed) {
      where.err() << "zotconf: skipped: " << more(report.left_out.size() - most_listed) << '\n';
    }
  }
  for (const refused_part &each : first_of(report.refused)) {
    tell_error(where.err(), "refused: " + each.reason, each.command);
  }
  if (report.refused.size() > most_listed) {
    tell_error(where.err(), "refused: " + more(report.refused.size() - most_listed));
  }
}

void write_fleet_report(const console &where, const fleet_report &report) {
  if (where.is_json()) {
    write_fleet_json(where, report);
  } else if (report.refused.empty()) {
    print_fleet(where, report);
  }
}

}  // namespace zotconf
