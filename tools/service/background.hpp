// SPDX-License-Identifier: Apache-2.0
// A process that goes on in the background, and a start that returns once it is at work.
#pragma once

#include <functional>

#include "tools/files/file_io.hpp"

namespace zotconf {

// What the process in the background calls when it is at work. From then on it has no terminal:
// its streams are a log file, or nothing where the path is empty.
using detach = std::function<void(const fs::path &log)>;

// Runs `process` in a session of its own. The process that calls this returns 0 as soon as the new
// one has detached, or with its exit status when it ends before; the new process returns what
// `process` returns. Called before any thread is started.
int run_in_background(const std::function<int(const detach &)> &process);

}  // namespace zotconf
