// SPDX-License-Identifier: Apache-2.0
// usage: faults_share [cycles=N] [seconds=N] [seed=N] [log]
// Runs processes that share a cache and are killed meanwhile. Prints what held; exits with 0 when
// everything did.
//
//   cycles=N   cycles of each process; default 500
//   seconds=N  end after N seconds at the latest
//   seed=N     seed of the random choices; by default a new one in each run
//   log        print the library's log with each failure
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/share/trial.hpp"
#include "tests/support/files.hpp"

namespace {

zot::test::share_options parse(int argc, char **argv) {
  zot::test::share_options options;
  options.seed = std::random_device{}();
  for (int at = 1; at < argc; ++at) {
    const std::string_view word = argv[at];
    const std::string value(word.substr(word.find('=') + 1));
    if (word.starts_with("cycles=")) {
      options.cycles = static_cast<unsigned>(std::stoul(value));
    } else if (word.starts_with("seconds=")) {
      options.seconds = static_cast<unsigned>(std::stoul(value));
    } else if (word.starts_with("seed=")) {
      options.seed = std::stoull(value);
    } else if (word == "log") {
      options.with_log = true;
    } else {
      throw std::invalid_argument("unknown: " + std::string(word));
    }
  }
  return options;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    zot::test::share_options options = parse(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    if (::access("/dev/shm", W_OK) == 0) {
      ::setenv("TMPDIR", "/dev/shm", 1);
    }
    const zot::test::temp_dir work;
    options.work = work.path();
    // A command of a client that was killed goes on, and is waited for here.
    zot::test::adopt_orphans();
    std::printf("seed %llu\n", static_cast<unsigned long long>(options.seed));
    std::fflush(stdout);
    return zot::test::share_a_cache(options) ? 0 : 1;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 2;
  }
}
