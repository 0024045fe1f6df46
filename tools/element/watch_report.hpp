// SPDX-License-Identifier: Apache-2.0
// The output of `zotconf watch`: a line of text or JSON for each event.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "tools/element/notify.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

enum class watch_event {
  starting,
  applied_cached,
  committed,
  rolled_back,
  no_update,
  same_as_rolled_back,
  service_failing,
  apply_failing,
  verdict_failing,
  recovered,
  stopping
};

// One event, printed as one line.
struct watch_report {
  watch_event what;
  std::string text = {};
  std::optional<int> status = {};  // of the library
  std::optional<std::string> config_id = {};
  std::optional<std::chrono::milliseconds> retry = {};
  std::string hint = {};  // adds the cause if the library's text lacks it; not in JSON
};

// Prints events as text or JSON, and sends them to the service manager.
class watch_reporter {
 public:
  watch_reporter(const console &where, const notifier &manager)
      : where_(where), manager_(manager) {}

  void tell(const watch_report &news) const;

 private:
  void print_json(const watch_report &news, const char *key) const;

  const console &where_;
  const notifier &manager_;
};

}  // namespace zotconf
