// SPDX-License-Identifier: Apache-2.0
// What each status of the library means to whoever gets it.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string_view>

namespace zotconf {

// One call's own reasons to return a status.
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
  std::array<status_cause, 7> causes;  // an empty call ends them
};

// A status with what the interface says of it, and what there is to say besides.
struct status_entry {
  std::string_view name;
  std::optional<std::string_view> text;  // recorded when a call gives none of its own
  const status_advice *advice;

  [[nodiscard]] std::span<const status_cause> causes() const;
};

// Every status, success and news first, then the errors by number.
std::span<const status_entry> all_statuses();

// Finds a status by its number ("-8") or by its name, in any letter case and with or without the
// prefixes ZOT_ and ZOT_ERR_; null when there is none.
const status_entry *find_status(std::string_view words);

}  // namespace zotconf
