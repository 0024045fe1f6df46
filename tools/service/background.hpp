// SPDX-License-Identifier: Apache-2.0
// Starts a background process and returns once that process is ready.
#pragma once

#include <functional>

#include "tools/files/file_io.hpp"

namespace zotconf {

// The background process calls this when it is ready. It then detaches from the terminal: its
// streams go to the log file, or to /dev/null if the path is empty.
using detach = std::function<void(const fs::path &log)>;

// Runs `process` in a new process with its own session. Returns 0 in the calling process as soon as
// the new process has detached, or the exit status of the new process if it ends before that.
// Returns the result of `process` in the new process. Must be called before any thread is started.
int run_in_background(const std::function<int(const detach &)> &process);

}  // namespace zotconf
