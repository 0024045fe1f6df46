// SPDX-License-Identifier: Apache-2.0
// What the processes of a web server and the machine have used so far.
#pragma once

#include <sys/types.h>

#include <cstdint>

struct server_figures {
  double cpu = 0;       // seconds, of all workers
  uint64_t memory = 0;  // bytes that only the workers use
  uint64_t dropped =
      0;  // connections that found the queue of the listening socket full, all servers
};

// `master` is the process whose children are the workers.
server_figures figures_of_server(pid_t master);
