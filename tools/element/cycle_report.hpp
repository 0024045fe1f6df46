// SPDX-License-Identifier: Apache-2.0
// The output of `zotconf cycle`: text while it runs, or JSON at the end.
#pragma once

#include <array>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "tools/output/console.hpp"
#include "tools/output/json.hpp"
#include "zot_conf.hpp"

namespace zotconf {

// The marks of entries, in the order in which a summary counts them.
inline constexpr std::array changes = {change::added,     change::modified, change::deleted,
                                       change::unchanged, change::full,     change::cached};

// For whoever has no report to make: without a handle nothing happens.
void tell_no_handle_to(std::ostream &err, const std::string &reason);

class cycle_report {
 public:
  explicit cycle_report(const console &where) : where_(where) {}
  cycle_report(const cycle_report &) = delete;
  cycle_report &operator=(const cycle_report &) = delete;

  // The result of the get: `words` in text, `key` in JSON.
  void tell_entries(std::string_view key, std::string_view words, const entries &list);
  void tell_metadata(const std::optional<metadata> &from);
  void tell_apply(const std::string &end);
  void tell_verdict(std::string_view key, std::string_view words);
  // Reports that a new configuration waits for a commit or rollback.
  void tell_undecided();
  // Reports a failed call; `what` names it, and `hint` adds what its text lacks.
  void tell_failure(std::string_view what, const status &found, const std::string &hint = "");
  // Reports that no handle was created; there is no status in this case.
  void tell_no_handle(const std::string &reason);
  // Prints the JSON document if JSON was requested. Must be the last call.
  void finish();

 private:
  const console &where_;
  json_document document_;
};

}  // namespace zotconf
