// SPDX-License-Identifier: Apache-2.0
// usage: faults_calls calls|disks|power... [every=N] [jobs=N] [only=OPERATION] [log]
// Injects failing system calls, full disks or power losses. Prints what held; exits with 0 when
// everything did.
//
//   every=N         run only every Nth trial
//   jobs=N          run N trials in parallel
//   only=OPERATION  run only this operation, named as in the output
//   log             print the library's log with each failure
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/faults/calls/call_sweep.hpp"
#include "tests/faults/calls/full_disk.hpp"
#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/power_loss.hpp"

namespace {

using zot::test::sweep_options;

using zot::test::services;

struct sweep {
  std::string_view name;
  bool (*run)(const sweep_options &, const services &);
};

constexpr sweep sweeps[] = {
    {"calls", zot::test::sweep_calls},
    {"disks", zot::test::sweep_full_disks},
    {"power", zot::test::sweep_power_losses},
};

struct wishes {
  sweep_options options;
  std::vector<const sweep *> wanted;
};

bool holds(const sweep &wanted, const sweep_options &options, const services &offered) {
  try {
    return wanted.run(options, offered);
  } catch (const zot::test::not_allowed &reason) {
    std::printf("left out: %s: %s\n", std::string(wanted.name).c_str(), reason.what());
    return true;
  }
}

wishes parse(int argc, char **argv) {
  wishes all;
  sweep_options &options = all.options;
  for (int at = 1; at < argc; ++at) {
    const std::string_view word = argv[at];
    const std::string value(word.substr(word.find('=') + 1));
    if (word.starts_with("every=")) {
      options.every = static_cast<unsigned>(std::stoul(value));
    } else if (word.starts_with("jobs=")) {
      options.jobs = static_cast<unsigned>(std::stoul(value));
    } else if (word.starts_with("only=")) {
      options.only = value;
    } else if (word == "log") {
      options.with_log = true;
    } else if (const auto *const found = std::ranges::find(sweeps, word, &sweep::name);
               found != std::end(sweeps)) {
      all.wanted.push_back(found);
    } else {
      throw std::invalid_argument("unknown: " + std::string(word));
    }
  }
  return all;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    wishes all = parse(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    // What a sweep writes it writes thousands of times; memory is meant for that.
    if (::access("/dev/shm", W_OK) == 0) {
      ::setenv("TMPDIR", "/dev/shm", 1);
    }
    const zot::test::temp_dir work;
    all.options.work = work.path();
    const services offered;
    zot::test::adopt_orphans();
    bool held = !all.wanted.empty();
    for (const sweep *const each : all.wanted) {
      held = holds(*each, all.options, offered) && held;
    }
    return held ? 0 : 1;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 2;
  }
}
