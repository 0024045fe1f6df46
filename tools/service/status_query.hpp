// SPDX-License-Identifier: Apache-2.0
// What the query of /status.json asks for.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "tools/model/names.hpp"
#include "tools/service/element_log.hpp"

namespace zotconf {

// Which elements, by what is published for them.
enum class state_filter { all, problem, good };

struct status_query {
  size_t page = 1;
  size_t size = 50;    // elements of a page
  std::string filter;  // in lower case; empty: every element
  state_filter state = state_filter::all;
  std::optional<fetch_state> fetch;  // which elements, by what they fetched; nothing: all
  size_t requests = 50;              // at most so many of the latest ones
};

struct query_error {
  std::string parameter;
  std::string text;
};

// "page=2&filter=ap%2000"; an empty query asks for the defaults.
std::variant<status_query, query_error> parse_status_query(std::string_view query);

// "subsys=AP&index=001122334455".
std::variant<element, query_error> parse_element_query(std::string_view query);

// In JSON, and as the value of the parameter.
std::string_view name_of(fetch_state fetch);

}  // namespace zotconf
