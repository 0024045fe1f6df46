// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout_text.hpp"

#include <algorithm>
#include <ostream>
#include <span>

#include "tools/output/figures.hpp"
#include "tools/output/text_table.hpp"

namespace zotconf {
namespace {

constexpr size_t most_printed = 20;

template <class T>
std::span<const T> first_printed(const std::vector<T> &all, size_t most = most_printed) {
  return std::span(all).first(std::min(all.size(), most));
}

void print_more(const console &where, uint64_t total, size_t printed) {
  if (total > printed) {
    where.out() << "and " << total - printed << " more\n";
  }
}

colour colour_of(standing state) {
  switch (state) {
    case standing::in_force:
      return colour::green;
    case standing::refused:
      return colour::red;
    case standing::failing:
      return colour::yellow;
    default:
      return colour::none;
  }
}

cell share_cell(uint64_t count, uint64_t total, colour with = colour::none) {
  const std::string text = std::to_string(count) + " " + percent_text(count, total);
  return {text, count > 0 ? with : colour::none};
}

void print_rows(const console &where, const std::vector<publication_row> &rows) {
  text_table table({{"CONFIG ID"},
                    {"SEQUENCE", align::right},
                    {"ELEMENTS", align::right},
                    {"IN FORCE", align::right},
                    {"REFUSED", align::right},
                    {"FAILING", align::right},
                    {"WAITING", align::right},
                    {"SILENT", align::right},
                    {"UNDONE", align::right}});
  for (const publication_row &row : first_printed(rows)) {
    std::vector<cell> cells = {config_id_text(row.config_id),
                               row.sequence == 0 ? "-" : std::to_string(row.sequence),
                               std::to_string(row.elements)};
    for (const standing state : all_standings) {
      cells.push_back(share_cell(row.count_of(state), row.elements, colour_of(state)));
    }
    cells.push_back(share_cell(row.undone, row.elements));
    table.add_row(std::move(cells));
  }
  table.print(where);
  print_more(where, rows.size(), std::min(rows.size(), most_printed));
}

void print_reasons(const console &where, const std::vector<reason_count> &reasons) {
  if (reasons.empty()) {
    return;
  }
  where.out() << '\n';
  text_table table({{"ELEMENTS", align::right}, {"STATE"}, {"REASON"}});
  for (const reason_count &each : first_printed(reasons)) {
    table.add_row({std::to_string(each.elements),
                   {words_of(each.state), colour_of(each.state)},
                   each.reason});
  }
  table.print(where);
  print_more(where, reasons.size(), std::min(reasons.size(), most_printed));
}

// Elements that refused first, then those that fail.
void print_elements(const console &where, const rollout &found) {
  text_table table({{"ELEMENT"}, {"STATE"}, {"REPORTED"}, {"REASON"}});
  size_t printed = 0;
  uint64_t total = 0;
  for (const standing state : {standing::refused, standing::failing}) {
    const standing_list &list = found.in_state(state);
    total += list.total;
    for (const listed_element &each : first_printed(list.first, most_printed - printed)) {
      table.add_row({each.who.subsys + " " + each.who.index,
                     {words_of(state), colour_of(state)},
                     iso_time(each.received),
                     each.reason});
      ++printed;
    }
  }
  if (printed > 0) {
    where.out() << '\n';
    table.print(where);
    print_more(where, total, printed);
  }
}

void print_notes(const console &where, const rollout &found) {
  for (const note_kind kind : all_note_kinds) {
    const note_list &list = found.notes(kind);
    if (list.total == 0) {
      continue;
    }
    where.out() << '\n';
    const auto printed = first_printed(list.first);
    for (const rollout_note &each : printed) {
      const bool is_of_element = !each.who.index.empty();
      where.out() << where.paint("note:", colour::yellow) << ' ' << each.who.subsys
                  << (is_of_element ? " " + each.who.index : "") << ": " << each.text << '\n';
    }
    print_more(where, list.total, printed.size());
  }
}

}  // namespace

void print_rollout(const console &where, const rollout &found, const rollout_verdict &verdict) {
  print_rows(where, found.rows());
  print_reasons(where, found.reasons());
  print_elements(where, found);
  print_notes(where, found);
  if (!verdict.reason.empty()) {
    const bool is_refused = verdict.status == exit_fleet_refused;
    where.out() << '\n'
                << where.paint(std::string(verdict.word()) + ":",
                               is_refused ? colour::red : colour::yellow)
                << ' ' << verdict.reason << '\n';
  }
}

}  // namespace zotconf
