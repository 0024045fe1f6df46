// SPDX-License-Identifier: Apache-2.0
// `zotconf serve`: answers clients from a publication folder over HTTP.
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
  fs::path pid_file = {};  // none when empty
  fs::path log = {};       // of the requests; standard output when empty
};

// Runs until SIGINT or SIGTERM; in the background, returns once a process of its own listens.
// Writes "listening on HOST:PORT", then one line a request, as JSON objects if asked for. A status
// page is at `/`; its own requests are not told.
int run_serve(const serve_options &options, const console &where);

}  // namespace zotconf
