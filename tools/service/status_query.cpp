// SPDX-License-Identifier: Apache-2.0
#include "tools/service/status_query.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <utility>

#include "tools/output/plain_text.hpp"
#include "tools/service/publication_summary.hpp"

namespace zotconf {
namespace {

constexpr size_t longest_filter = 100;
constexpr size_t longest_value = 600;  // an element's name or a filter with every byte escaped
constexpr size_t highest_page = 1'000'000;
constexpr size_t largest_page = 200;
constexpr size_t most_requests = 50;

template <class T>
using named_value = std::pair<std::string_view, T>;

constexpr std::array state_names = {named_value<state_filter>{"all", state_filter::all},
                                    named_value<state_filter>{"problem", state_filter::problem},
                                    named_value<state_filter>{"good", state_filter::good}};

constexpr std::array fetch_names = {
    named_value<std::optional<fetch_state>>{"all", std::nullopt},
    named_value<std::optional<fetch_state>>{"up_to_date", fetch_state::up_to_date},
    named_value<std::optional<fetch_state>>{"older", fetch_state::older},
    named_value<std::optional<fetch_state>>{"asked", fetch_state::asked},
    named_value<std::optional<fetch_state>>{"never", fetch_state::never}};

// Returns nullopt for a "%" without two digits, for invalid UTF-8 and for a NUL.
std::optional<std::string> decoded(std::string_view text) {
  std::string result;
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%') {
      result += text[at] == '+' ? ' ' : text[at];
      continue;
    }
    const std::string_view digits = text.substr(at + 1, 2);
    unsigned value = 0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.size() != 2 || end.ptr != digits.data() + 2) {
      return std::nullopt;
    }
    result += static_cast<char>(value);
    at += 2;
  }
  const bool is_text = is_utf8(result) && result.find('\0') == std::string::npos;
  return is_text ? std::optional(result) : std::nullopt;
}

using parameters = std::map<std::string, std::string, std::less<>>;

std::variant<parameters, query_error> split_query(std::string_view query) {
  parameters found;
  while (!query.empty()) {
    const std::string_view part = query.substr(0, query.find('&'));
    query.remove_prefix(std::min(part.size() + 1, query.size()));
    if (part.empty()) {
      continue;
    }
    const size_t equals = std::min(part.find('='), part.size());
    const std::string name(part.substr(0, std::min<size_t>(equals, 40)));
    const std::string_view value = part.substr(std::min(equals + 1, part.size()));
    auto text = value.size() <= longest_value ? decoded(value) : std::nullopt;
    if (!text) {
      return query_error{printable(name), "is too long or not percent-encoded UTF-8"};
    }
    if (!found.emplace(name, std::move(*text)).second) {
      return query_error{printable(name), "is given twice"};
    }
  }
  return found;
}

std::string take_number(const std::string &text, size_t low, size_t high, size_t &into) {
  const char *const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, into);
  const bool is_number = !text.empty() && stop == end && error == std::errc{};
  return is_number && into >= low && into <= high
             ? ""
             : "has to be a number from " + std::to_string(low) + " to " + std::to_string(high);
}

template <class Names, class T>
std::string take_name(const std::string &text, const Names &names, T &into) {
  std::string known;
  for (const auto &[name, value] : names) {
    if (text == name) {
      into = value;
      return "";
    }
    known.append(known.empty() ? "" : ", ").append(name);
  }
  return "has to be one of: " + known;
}

std::string take_filter(const std::string &text, std::string &into) {
  if (text.size() > longest_filter || text.find('\n') != std::string::npos) {
    return "has to be one line of at most " + std::to_string(longest_filter) + " bytes";
  }
  into = lower_case(text);
  return "";
}

struct query_parameter {
  std::string_view name;
  // Stores the value. Returns what is wrong with it.
  std::string (*take)(const std::string &text, status_query &into);
};

constexpr std::array status_parameters = {
    query_parameter{"page",
                    [](const std::string &text, status_query &into) {
                      return take_number(text, 1, highest_page, into.page);
                    }},
    query_parameter{"size",
                    [](const std::string &text, status_query &into) {
                      return take_number(text, 1, largest_page, into.size);
                    }},
    query_parameter{"filter", [](const std::string &text,
                                 status_query &into) { return take_filter(text, into.filter); }},
    query_parameter{"state",
                    [](const std::string &text, status_query &into) {
                      return take_name(text, state_names, into.state);
                    }},
    query_parameter{"fetch",
                    [](const std::string &text, status_query &into) {
                      return take_name(text, fetch_names, into.fetch);
                    }},
    query_parameter{"requests", [](const std::string &text, status_query &into) {
                      return take_number(text, 0, most_requests, into.requests);
                    }}};

}  // namespace

std::variant<status_query, query_error> parse_status_query(std::string_view query) {
  const auto split = split_query(query);
  if (const auto *const error = std::get_if<query_error>(&split)) {
    return *error;
  }
  status_query wanted;
  for (const auto &[name, text] : std::get<parameters>(split)) {
    const auto *const known =
        std::ranges::find(status_parameters, std::string_view(name), &query_parameter::name);
    if (known == status_parameters.end()) {
      return query_error{printable(name), "is not a parameter of status.json"};
    }
    if (std::string wrong = known->take(text, wanted); !wrong.empty()) {
      return query_error{name, std::move(wrong)};
    }
  }
  return wanted;
}

std::variant<element, query_error> parse_element_query(std::string_view query) {
  const auto split = split_query(query);
  if (const auto *const error = std::get_if<query_error>(&split)) {
    return *error;
  }
  element who;
  for (const auto &[name, text] : std::get<parameters>(split)) {
    if (name != "subsys" && name != "index") {
      return query_error{printable(name), "is not a parameter of element.json"};
    }
    (name == "subsys" ? who.subsys : who.index) = text;
  }
  if (who.subsys.empty() || who.index.empty()) {
    return query_error{who.subsys.empty() ? "subsys" : "index", "is missing"};
  }
  return who;
}

std::string_view name_of(fetch_state fetch) {
  const auto *const found = std::ranges::find(fetch_names, std::optional(fetch),
                                              &named_value<std::optional<fetch_state>>::second);
  return found->first;
}

}  // namespace zotconf
