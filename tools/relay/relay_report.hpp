// SPDX-License-Identifier: Apache-2.0
// The output of `zotconf relay`: a line of text or JSON for each change.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "tools/element/notify.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

enum class relay_event {
  starting,
  unchanged,
  updated,
  repaired,
  refused,
  failing,
  recovered,
  reports_failing,
  reports_recovered,
  stopping
};

// One event, printed as one line.
struct relay_report {
  relay_event what;
  std::string text = {};
  std::optional<uint64_t> sequence = {};
  std::optional<std::chrono::milliseconds> retry = {};
};

// Prints events, and sends them to the service manager. Safe to use from several threads.
class relay_reporter {
 public:
  relay_reporter(const console &where, const notifier &manager)
      : where_(where), manager_(manager) {}

  void tell(const relay_report &news);
  // Prints an event only if its kind or its text differs from those of the last one that was
  // printed.
  void tell_change(const relay_report &news);
  // Prints an event that is not one of the rounds. The service manager keeps the last one of those.
  void tell_aside(const relay_report &news);

 private:
  void print(const relay_report &news, const std::string &line) const;
  void tell_round(const relay_report &news);

  const console &where_;
  const notifier &manager_;
  std::mutex mutex_;
  std::optional<relay_report> told_;
};

}  // namespace zotconf
