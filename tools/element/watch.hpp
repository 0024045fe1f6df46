// SPDX-License-Identifier: Apache-2.0
// `zotconf watch`: keeps an element up to date: get, apply, commit or roll back, until it is told
// to stop.
#pragma once

#include <chrono>
#include <string>

#include "tools/element/cycle.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct watch_options {
  cycle_options element;  // who it is, its categories, time-outs and log level, and the command
  std::chrono::milliseconds every{};
  std::chrono::milliseconds backoff_min{};
  std::chrono::milliseconds backoff_max{};
  bool apply_cached_at_start = false;
};

// Returns an exit status once SIGINT or SIGTERM came, or when there is no handle.
int run_watch(const watch_options &options, const console &where);

}  // namespace zotconf
