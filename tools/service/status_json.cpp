// SPDX-License-Identifier: Apache-2.0
#include "tools/service/status_json.hpp"

#include <ctime>
#include <optional>
#include <string>

#include "tools/model/statuses.hpp"
#include "tools/output/figures.hpp"
#include "tools/service/advice.hpp"
#include "zot_conf.h"

namespace zotconf {
namespace {

std::optional<std::string> time_text(const std::optional<std::time_t> &when) {
  return when ? stated(iso_time(*when)) : std::nullopt;
}

const char *state_of(const publication_summary &summary) {
  if (summary.problem) {
    return "problem";
  }
  return summary.is_read ? "good" : "unread";
}

void describe_problem(json_node into, const publication_summary &summary, const fs::path &folder) {
  if (!summary.problem) {
    into.set("problem", std::optional<std::string>());
    return;
  }
  const problem_advice advice = advice_for(summary, folder);
  json_node problem = into.object("problem");
  problem.set("reason", printable(summary.problem->reason))
      .set("advice", advice.sentence)
      .set("command", advice.command);
  const status_entry *const status = find_status(std::to_string(summary.problem->element_status));
  problem.set("status", summary.problem->element_status)
      .set("status_name", status == nullptr ? "" : status->name)
      .set("status_meaning", status == nullptr ? "" : status->advice->meaning);
}

// Figures of an unreadable K are null, not 0.
std::optional<uint64_t> figure_of(const publication_summary &summary, uint64_t figure) {
  const bool is_known =
      summary.is_read && (!summary.problem || summary.problem->kind == problem_kind::files);
  return is_known ? std::optional(figure) : std::nullopt;
}

void describe_fetch(json_node into, const status_row &row) {
  const element_fetches none;
  const element_fetches &known = row.fetches ? *row.fetches : none;
  into.set("state", name_of(row.fetch))
      .set("checksum_sent", time_text(known.checksum_sent))
      .set("k_sent", time_text(known.k_sent))
      .set("k_checksum", stated(known.k_checksum))
      .set("k_config_id", stated(known.k_config_id))
      .set("client", stated(known.client));
}

void describe_row(json_node into, const status_row &row, const fs::path &folder) {
  const publication_summary &summary = *row.summary;
  into.set("subsys", printable(summary.who.subsys))
      .set("index", printable(summary.who.index))
      .set("state", state_of(summary));
  describe_problem(into, summary, folder);
  into.set("config_id", stated(summary.config_id))
      .set("cluster", stated(summary.cluster))
      .set("firmware", stated(summary.firmware))
      .set("checksum", stated(summary.checksum))
      .set("written", time_text(summary.written))
      .set("entries", figure_of(summary, summary.entries))
      .set("bytes", figure_of(summary, summary.bytes));
  describe_fetch(into.object("fetch"), row);
}

void describe_counts(json_node into, const row_counts &counts) {
  into.set("all", counts.all)
      .set("problem", counts.problem)
      .set("good", counts.good)
      .set("unread", counts.unread)
      .set("up_to_date", counts.up_to_date)
      .set("older", counts.older)
      .set("asked", counts.asked)
      .set("never", counts.never);
}

}  // namespace

void describe_page(json_node into, const publication_view::snapshot &published,
                   const row_page &page, const element_log &log, const fs::path &folder) {
  into.set("problem", published.problem);
  into.object("look")
      .set("published", published.rows.size())
      .set("read", published.read)
      .set("elements", page.elements)
      .set("problems", page.problems)
      .set("complete", published.looked && published.read == published.rows.size());
  describe_counts(into.object("counts"), page.counts);
  into.object("page")
      .set("number", page.page)
      .set("pages", page.pages)
      .set("elements", page.matching);
  const element_log::extent counted = log.counted();
  into.object("fetches").set("since", iso_time(counted.since)).set("forgotten", counted.forgotten);
  json_node elements = into.array("elements");
  for (const status_row &row : page.rows) {
    describe_row(elements.append(), row, folder);
  }
}

void describe_details(json_node into, const status_row &row, const fs::path &folder) {
  describe_row(into, row, folder);
  into.set("checked", time_text(row.summary->checked));
  json_node categories = into.array("categories");
  for (const category_total &total : row.summary->categories) {
    categories.append()
        .set("category", zot_util_cat2str(total.category))
        .set("entries", total.entries)
        .set("bytes", total.bytes);
  }
  json_node faults = into.array("files");
  for (const file_fault &fault : row.summary->faults) {
    faults.append().set("path", printable(fault.path)).set("text", fault.text);
  }
}

}  // namespace zotconf
