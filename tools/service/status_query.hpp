// SPDX-License-Identifier: Apache-2.0
// The parsed query of /status.json.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "tools/model/names.hpp"
#include "tools/service/element_log.hpp"

namespace zotconf {

// Selects elements by the state of their publication.
enum class state_filter { all, problem, good };

struct status_query {
  size_t page = 1;
  size_t size = 50;    // elements per page
  std::string filter;  // in lower case; empty: every element
  state_filter state = state_filter::all;
  std::optional<fetch_state> fetch;  // selects elements by their last fetch; nullopt: all
  size_t requests = 50;              // maximum number of latest requests
};

struct query_error {
  std::string parameter;
  std::string text;
};

// Parses a query such as "page=2&filter=ap%2000"; an empty query gives the defaults.
std::variant<status_query, query_error> parse_status_query(std::string_view query);

// Parses a query such as "subsys=AP&index=001122334455".
std::variant<element, query_error> parse_element_query(std::string_view query);

// The word for JSON and for the value of the parameter.
std::string_view name_of(fetch_state fetch);

}  // namespace zotconf
