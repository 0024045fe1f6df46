// SPDX-License-Identifier: Apache-2.0
// Exit statuses, the same for all commands. Scripts depend on the numbers, so they must not change.
#pragma once

#include <array>
#include <string_view>

namespace zotconf {

enum exit_status : int {
  exit_success = 0,
  exit_failure = 1,
  exit_usage = 2,
  exit_no_update = 3,
  exit_same_as_corrupted = 4,
  exit_rolled_back = 5,
  exit_refused = 6,
  exit_damaged = 7,
  exit_different = 8,
  exit_fleet_refused = 9,
  exit_apply_failed = 10,
  exit_relay_problem = 11,
  exit_fleet_pending = 12
};

struct exit_meaning {
  exit_status status;
  std::string_view text;
};

constexpr std::array<exit_meaning, 13> exit_meanings = {{
    {exit_success, "done"},
    {exit_failure, "failure of the service, the storage or the library; see standard error"},
    {exit_usage, "wrong usage"},
    {exit_no_update, "no update: the configuration in force is the published one"},
    {exit_same_as_corrupted, "the service still offers the configuration that was rolled back"},
    {exit_rolled_back, "a new configuration was rolled back"},
    {exit_refused, "refused: see standard error for the reason; nothing was written or removed"},
    {exit_damaged, "damage or an interrupted commit was found, or remains after a repair"},
    {exit_different, "the two configurations differ, and --exit-code was given"},
    {exit_fleet_refused, "more elements refused a configuration than --max-refused allows"},
    {exit_apply_failed,
     "the command of --apply could not run or did not exit by itself; nothing was committed or "
     "rolled back"},
    {exit_relay_problem,
     "the relay has a problem: it has no publication, or does not receive newer ones"},
    {exit_fleet_pending,
     "fewer elements have a configuration in force than --min-in-force requires"},
}};

constexpr std::string_view meaning_of(exit_status status) {
  for (const exit_meaning &each : exit_meanings) {
    if (each.status == status) {
      return each.text;
    }
  }
  return "";
}

}  // namespace zotconf
