// SPDX-License-Identifier: Apache-2.0
// `zotconf watch`: keeps an element up to date until a signal stops it: get, apply, commit or roll
// back.
#pragma once

#include <chrono>
#include <string>

#include "tools/element/cycle.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct watch_options {
  cycle_options element;  // identity, categories, time-outs, log level and command
  std::chrono::milliseconds every{};
  std::chrono::milliseconds backoff_min{};
  std::chrono::milliseconds backoff_max{};
  bool apply_cached_at_start = false;
  fs::path state = {};  // the file for the state of the element; empty: none
};

// Returns an exit status after SIGINT or SIGTERM, or when no handle can be created.
int run_watch(const watch_options &options, const console &where);

}  // namespace zotconf
