// SPDX-License-Identifier: Apache-2.0
// `zotconf serve`: answers clients from a publication folder over HTTP.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/files/file_io.hpp"
#include "tools/output/console.hpp"

namespace zotconf {

struct serve_options {
  fs::path publication;
  std::string bind = "127.0.0.1";
  int port = 8087;  // 0: any free port
};

// Runs until SIGINT or SIGTERM. Writes "listening on HOST:PORT", then one line a request, as JSON
// objects if asked for. A status page is at `/`; its own requests are not told.
int run_serve(const serve_options &options, const console &where);

// The names of a request body {"files": [...]}. An empty body names nothing: that is what a client
// sends whose configuration has no files. Nothing for any other text.
std::optional<std::vector<std::string>> parse_file_request(const std::string &body);

}  // namespace zotconf
