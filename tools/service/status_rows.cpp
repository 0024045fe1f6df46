// SPDX-License-Identifier: Apache-2.0
#include "tools/service/status_rows.hpp"

#include <algorithm>
#include <ctime>
#include <memory>
#include <tuple>
#include <utility>

namespace zotconf {
namespace {

// An element without a publication asks again soon. If it stops asking, it is no longer shown as a
// problem.
constexpr std::time_t refused_shown_seconds = 3600;

fetch_state fetch_state_of(const publication_summary &summary, const element_log &log) {
  const fetch_state state = log.state_of(summary.who, summary.checksum);
  const bool asks_in_vain = summary.problem && summary.problem->kind == problem_kind::not_published;
  if (state == fetch_state::never) {
    return asks_in_vain ? fetch_state::asked : state;
  }
  // Its K is not read yet, so there is nothing to compare with.
  return summary.is_read ? state : fetch_state::asked;
}

void count_row(row_counts &counts, const publication_summary &summary, fetch_state fetch) {
  ++counts.all;
  ++(summary.problem ? counts.problem : summary.is_read ? counts.good : counts.unread);
  switch (fetch) {
    case fetch_state::up_to_date:
      ++counts.up_to_date;
      break;
    case fetch_state::older:
      ++counts.older;
      break;
    case fetch_state::asked:
      ++counts.asked;
      break;
    case fetch_state::never:
      ++counts.never;
  }
}

bool is_in_state(const publication_summary &summary, state_filter wanted) {
  const bool has_problem = summary.problem.has_value();
  return wanted == state_filter::all || (wanted == state_filter::problem && has_problem) ||
         (wanted == state_filter::good && summary.is_read && !has_problem);
}

auto by_element(const publication_view::row &row) {
  return std::tie(row->who.subsys, row->who.index);
}

}  // namespace

std::vector<publication_view::row> all_rows(const publication_view::snapshot &published,
                                            const element_log &log) {
  std::vector<publication_view::row> rows = published.rows;
  if (!published.looked) {
    return rows;
  }
  for (const refused_element &one : log.refused(std::time(nullptr) - refused_shown_seconds)) {
    auto row = std::make_shared<publication_summary>(missing_publication(
        one.who, "Nothing is published for this element, which asks from " + one.client));
    const auto place = std::ranges::lower_bound(
        published.rows, std::tie(row->who.subsys, row->who.index), {}, by_element);
    const bool is_published = place != published.rows.end() &&
                              (*place)->who.subsys == row->who.subsys &&
                              (*place)->who.index == row->who.index;
    if (!is_published) {
      rows.push_back(std::move(row));
    }
  }
  std::ranges::sort(rows, {}, by_element);
  return rows;
}

status_row row_of(const publication_view::row &summary, const element_log &log) {
  return {.summary = summary,
          .fetches = log.fetches_of(summary->who),
          .fetch = fetch_state_of(*summary, log)};
}

row_page select_rows(const std::vector<publication_view::row> &rows, const element_log &log,
                     const status_query &wanted) {
  row_page result;
  result.elements = rows.size();
  std::vector<const publication_view::row *> chosen;
  std::vector<const publication_view::row *> others;
  for (const publication_view::row &summary : rows) {
    result.problems += summary->problem ? 1 : 0;
    if (summary->search_text.find(wanted.filter) == std::string::npos) {
      continue;
    }
    const fetch_state fetch = fetch_state_of(*summary, log);
    count_row(result.counts, *summary, fetch);
    if (is_in_state(*summary, wanted.state) && (!wanted.fetch || *wanted.fetch == fetch)) {
      (summary->problem ? chosen : others).push_back(&summary);
    }
  }
  chosen.insert(chosen.end(), others.begin(), others.end());
  result.matching = chosen.size();
  result.pages = std::max<size_t>((chosen.size() + wanted.size - 1) / wanted.size, 1);
  result.page = std::min(wanted.page, result.pages);
  const size_t begin = (result.page - 1) * wanted.size;
  for (size_t at = begin; at < std::min(begin + wanted.size, chosen.size()); ++at) {
    result.rows.push_back(row_of(*chosen[at], log));
  }
  return result;
}

}  // namespace zotconf
