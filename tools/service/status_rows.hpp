// SPDX-License-Identifier: Apache-2.0
// The elements that a query selects: what is published for each, and what it fetched.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "tools/service/element_log.hpp"
#include "tools/service/publication_view.hpp"
#include "tools/service/status_query.hpp"

namespace zotconf {

struct status_row {
  publication_view::row summary;
  std::optional<element_fetches> fetches;
  fetch_state fetch = fetch_state::never;
};

// Counts of the elements that match the filter, in any state.
struct row_counts {
  uint64_t all = 0;
  uint64_t problem = 0;
  uint64_t good = 0;
  uint64_t unread = 0;
  uint64_t up_to_date = 0;
  uint64_t older = 0;
  uint64_t asked = 0;
  uint64_t never = 0;
};

struct row_page {
  std::vector<status_row> rows;  // problems first, then by sub-system and index
  size_t page = 1;               // the last page if the requested one does not exist
  size_t pages = 1;
  uint64_t matching = 0;  // on all pages
  uint64_t elements = 0;  // all, independent of the query
  uint64_t problems = 0;  // of all elements
  row_counts counts;
};

// Published elements, and elements that ask but have no publication.
std::vector<publication_view::row> all_rows(const publication_view::snapshot &published,
                                            const element_log &log);

status_row row_of(const publication_view::row &summary, const element_log &log);

row_page select_rows(const std::vector<publication_view::row> &rows, const element_log &log,
                     const status_query &wanted);

}  // namespace zotconf
