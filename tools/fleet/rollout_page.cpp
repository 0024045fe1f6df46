// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout_page.hpp"

#include <algorithm>
#include <initializer_list>

#include "tools/output/figures.hpp"
#include "tools/output/version.hpp"
#include "tools/service/page_answer.hpp"
#include "tools/service/page_html.hpp"

namespace zotconf {
namespace {

constexpr uint64_t bar_width = 1000;

struct verdict_mark {
  const char *text;
  const char *look;  // class of the style
};

verdict_mark mark_of(const rollout_verdict &verdict) {
  switch (verdict.status) {
    case exit_fleet_refused:
      return {.text = "refused by too many", .look = "bad"};
    case exit_fleet_pending:
      return {.text = "pending", .look = "warn"};
    default:
      return {.text = "no limit exceeded", .look = "good"};
  }
}

// Allows only the page's own style. A file has no headers for this.
std::string policy_of_page() {
  return "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
         "base-uri 'none'; form-action 'none'; img-src data:; style-src " +
         source_hash(fleet_html, "style") + "\">\n";
}

std::string head_of(const rollout &found, const rollout_verdict &verdict) {
  const verdict_mark mark = mark_of(verdict);
  return policy_of_page() + "<title>" + mark.text +
         " - zotconf fleet</title>\n</head>\n<body>\n"
         "<header><div><h1>zotconf fleet</h1><p class=\"mark " +
         mark.look + "\" role=\"status\">" + mark.text + "</p><p class=\"quiet\">" +
         counted(found.elements(), "element", "elements") + ", at " + iso_time(found.when()) +
         "</p></div></header>\n<main>\n";
}

std::string verdict_html(const rollout_verdict &verdict) {
  return verdict.reason.empty() ? ""
                                : "<div class=\"note\"><p class=\"reason\">" +
                                      escaped(verdict.reason) + "</p></div>\n";
}

std::string more_html(uint64_t total, size_t shown) {
  return total > shown ? "<p class=\"quiet\">and " + std::to_string(total - shown) + " more</p>\n"
                       : "";
}

std::string table_html(std::initializer_list<const char *> titles, const std::string &rows) {
  std::string html = "<div class=\"table\"><table><thead><tr>";
  for (const char *const title : titles) {
    html += std::string("<th scope=\"col\">") + title + "</th>";
  }
  return html + "</tr></thead><tbody>\n" + rows + "</tbody></table></div>\n";
}

std::string rect_html(standing state, uint64_t from, uint64_t to) {
  return std::string("<rect class=\"") + name_of(state) + "\" x=\"" + std::to_string(from) +
         "\" width=\"" + std::to_string(to - from) + "\" height=\"10\"/>";
}

// The text beside the bar says the same, so a reader of the page's text skips the bar.
std::string bar_html(const publication_row &row) {
  std::string html =
      "<svg class=\"bar\" viewBox=\"0 0 1000 10\" preserveAspectRatio=\"none\" "
      "aria-hidden=\"true\">";
  uint64_t elements = 0;
  for (const standing state : all_standings) {
    const uint64_t from = elements * bar_width / row.elements;
    elements += row.count_of(state);
    const uint64_t to = elements * bar_width / row.elements;
    html += to > from ? rect_html(state, from, to) : "";
  }
  return html + "</svg>";
}

std::string count_and_share(uint64_t count, uint64_t total) {
  return std::to_string(count) + " (" + escaped(percent_text(count, total)) + ")";
}

std::string states_html(const publication_row &row) {
  std::string html = "<ul class=\"states\">";
  for (const standing state : all_standings) {
    html += "<li><svg viewBox=\"0 0 10 10\" aria-hidden=\"true\">" + rect_html(state, 0, 10) +
            "</svg>" + words_of(state) + " " + count_and_share(row.count_of(state), row.elements) +
            "</li>";
  }
  return html + "<li>commits undone: " + count_and_share(row.undone, row.elements) + "</li></ul>";
}

std::string row_html(const publication_row &row) {
  const std::string sequence = row.sequence == 0 ? "not stated" : std::to_string(row.sequence);
  return "<tr><td class=\"name\">" + escaped(config_id_text(row.config_id)) +
         "<p class=\"quiet\">sequence " + sequence + ", " +
         counted(row.elements, "element", "elements") + "</p></td><td>" + bar_html(row) +
         states_html(row) + "</td></tr>\n";
}

std::string publications_html(const std::vector<publication_row> &rows) {
  const size_t shown = std::min(rows.size(), rollout::most_kept);
  std::string html;
  for (size_t i = 0; i < shown; ++i) {
    html += row_html(rows[i]);
  }
  return "<section><h2>Publications</h2>\n" + table_html({"Config ID", "Elements"}, html) +
         more_html(rows.size(), shown) + "</section>\n";
}

std::string reasons_html(const std::vector<reason_count> &reasons) {
  const size_t shown = std::min(reasons.size(), rollout::most_kept);
  std::string html;
  for (size_t i = 0; i < shown; ++i) {
    const reason_count &each = reasons[i];
    html += "<tr><td class=\"fixed\">" + std::to_string(each.elements) +
            "</td><td class=\"fixed\">" + words_of(each.state) + "</td><td>" +
            escaped(each.reason) + "</td></tr>\n";
  }
  return html.empty()
             ? ""
             : "<section><h2>Reasons</h2>\n" + table_html({"Elements", "State", "Reason"}, html) +
                   more_html(reasons.size(), shown) + "</section>\n";
}

std::string elements_html(const char *title, const standing_list &list) {
  std::string html;
  for (const listed_element &each : list.first) {
    html += "<tr><td class=\"fixed\">" + escaped(each.who.subsys + " " + each.who.index) +
            "</td><td class=\"fixed\">" + (each.received == 0 ? "-" : iso_time(each.received)) +
            "</td><td>" + escaped(each.reason) + "</td></tr>\n";
  }
  return html.empty() ? ""
                      : std::string("<section><h2>") + title + "</h2>\n" +
                            table_html({"Element", "Report of", "Reason"}, html) +
                            more_html(list.total, list.first.size()) + "</section>\n";
}

std::string notes_html(const rollout &found) {
  std::string html;
  for (const note_kind kind : all_note_kinds) {
    const note_list &list = found.notes(kind);
    std::string items;
    for (const rollout_note &each : list.first) {
      const std::string index = each.who.index.empty() ? "" : " " + each.who.index;
      items += "<li>" + escaped(each.who.subsys + index + ": " + each.text) + "</li>\n";
    }
    html += items.empty() ? ""
                          : "<ul class=\"notes\">\n" + items + "</ul>\n" +
                                more_html(list.total, list.first.size());
  }
  return html.empty() ? "" : "<section><h2>Notes</h2>\n" + html + "</section>\n";
}

}  // namespace

std::string rollout_page(const rollout &found, const rollout_verdict &verdict) {
  return std::string(fleet_html) + head_of(found, verdict) + verdict_html(verdict) +
         publications_html(found.rows()) + reasons_html(found.reasons()) +
         elements_html("Refused", found.in_state(standing::refused)) +
         elements_html("Failing", found.in_state(standing::failing)) +
         elements_html("Silent", found.in_state(standing::silent)) + notes_html(found) +
         "<footer class=\"quiet\">Times are in UTC. Written by zotconf " + version +
         ".</footer>\n</main>\n</body>\n</html>\n";
}

}  // namespace zotconf
