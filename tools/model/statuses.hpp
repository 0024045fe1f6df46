// SPDX-License-Identifier: Apache-2.0
// What each status of the library means to its caller.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>

namespace zotconf {

// A reason for a status that applies to one call only.
struct status_cause {
  std::string_view call;
  std::string_view when;
};

struct status_advice {
  int code;                  // a zot_status
  std::string_view meaning;  // one line
  std::string_view retry;
  std::string_view fault;
  std::string_view cache;  // the state of the cache afterwards
  std::string_view action;
  std::array<status_cause, 7> causes;  // an empty call ends the list
};

// A status: its name and text from the interface, and its explanation.
struct status_entry {
  std::string_view name;
  std::optional<std::string_view> text;  // the default text, when the call records none
  const status_advice *advice;

  [[nodiscard]] std::span<const status_cause> causes() const;
};

// Every status: success and information first, then the errors by number.
std::span<const status_entry> all_statuses();

// Finds a status by its number ("-8") or its name, in any letter case and with or without the
// prefixes ZOT_ and ZOT_ERR_. Returns null when there is none.
const status_entry *find_status(std::string_view words);

}  // namespace zotconf
