// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout_json.hpp"

#include <algorithm>
#include <ostream>
#include <span>

#include "tools/output/figures.hpp"
#include "tools/output/json.hpp"

namespace zotconf {
namespace {

template <class T>
std::span<const T> first_kept(const std::vector<T> &all) {
  return std::span(all).first(std::min(all.size(), rollout::most_kept));
}

void set_share(json_node into, const char *name, uint64_t count, uint64_t total) {
  into.object(name)
      .set("count", count)
      .set("percent", static_cast<double>(tenths_of_percent(count, total)) / 10);
}

void set_rows(json_node root, const std::vector<publication_row> &rows) {
  root.set("publications_total", rows.size());
  json_node list = root.array("publications");
  for (const publication_row &row : first_kept(rows)) {
    json_node item = list.append();
    item.set("config_id", stated(row.config_id))
        .set("sequence", row.sequence == 0 ? std::nullopt : std::optional(row.sequence))
        .set("elements", row.elements);
    for (const standing state : all_standings) {
      set_share(item, name_of(state), row.count_of(state), row.elements);
    }
    set_share(item, "undone", row.undone, row.elements);
  }
}

void set_reasons(json_node root, const std::vector<reason_count> &reasons) {
  root.set("reasons_total", reasons.size());
  json_node list = root.array("reasons");
  for (const reason_count &each : first_kept(reasons)) {
    list.append()
        .set("elements", each.elements)
        .set("state", name_of(each.state))
        .set("reason", each.reason);
  }
}

void set_elements(json_node root, const std::string &name, const standing_list &elements) {
  root.set((name + "_total").c_str(), elements.total);
  json_node list = root.array(name.c_str());
  for (const listed_element &each : elements.first) {
    list.append()
        .set("subsys", each.who.subsys)
        .set("index", each.who.index)
        .set("config_id", stated(each.config_id))
        .set("reason", each.reason)
        .set("received",
             each.received == 0 ? std::nullopt : std::optional(iso_time(each.received)));
  }
}

void set_notes(json_node root, const rollout &found) {
  json_node totals = root.object("notes_total");
  json_node list = root.array("notes");
  for (const note_kind kind : all_note_kinds) {
    totals.set(name_of(kind), found.notes(kind).total);
    for (const rollout_note &each : found.notes(kind).first) {
      list.append()
          .set("kind", name_of(kind))
          .set("subsys", each.who.subsys)
          .set("index", stated(each.who.index))
          .set("text", each.text);
    }
  }
}

}  // namespace

void write_rollout_json(const console &where, const rollout &found,
                        const rollout_verdict &verdict) {
  json_document document;
  json_node root = document.root();
  root.set("result", verdict.word())
      .set("reason", stated(verdict.reason))
      .set("time", iso_time(found.when()))
      .set("elements", found.elements());
  set_rows(root, found.rows());
  set_reasons(root, found.reasons());
  for (const standing state : {standing::refused, standing::failing, standing::silent}) {
    set_elements(root, name_of(state), found.in_state(state));
  }
  set_notes(root, found);
  where.out() << document.text();
}

}  // namespace zotconf
