// SPDX-License-Identifier: Apache-2.0
// `zotconf relay`: keeps a copy of an element's publication up to date, and serves it.
#pragma once

#include <chrono>
#include <string>

#include "tools/files/file_io.hpp"
#include "tools/model/names.hpp"
#include "tools/output/console.hpp"
#include "tools/relay/reporting.hpp"
#include "tools/relay/upstream.hpp"

namespace zotconf {

struct relay_options {
  upstream_options server;
  element who;
  fs::path store;
  std::string bind = "127.0.0.1";
  int port = 8087;  // 0: any free port
  std::chrono::milliseconds every{30000};
  unsigned jitter = 10;   // percent
  fs::path keyring = {};  // empty: K need not be signed
  std::chrono::milliseconds max_age{};
  size_t keep = 2;  // publications
  int compression = 0;
  std::string user = {};  // empty: that of the process
  bool once = false;
  report_options report = {};
};

// Runs until SIGINT or SIGTERM. With `once`, does one round without serving. Writes "listening on
// HOST:PORT", then one line per change, or JSON objects with --json.
int run_relay(const relay_options &options, const console &where);

}  // namespace zotconf
