// SPDX-License-Identifier: Apache-2.0
// `zotconf serve`: serves a publication folder to clients over HTTP.
#pragma once

#include <string>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct serve_options {
  fs::path publication;
  std::string bind = "127.0.0.1";
  int port = 8087;  // 0: any free port
  bool background = false;
  fs::path pid_file = {};  // empty: none
  fs::path log = {};       // of the requests; empty: standard output
};

// Runs until SIGINT or SIGTERM; in the background mode, returns once the background process
// listens. Writes "listening on HOST:PORT", then one line per request, or JSON objects with --json.
// The status page is at `/`; requests of the page itself are not logged.
int run_serve(const serve_options &options, const console &where);

}  // namespace zotconf
