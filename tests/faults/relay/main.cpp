// SPDX-License-Identifier: Apache-2.0
// usage: faults_relay PART... [every=N] [jobs=N] [only=TEXT] [verbose]
// Runs a relay against faults of one kind after the other. Exits with 0 when all checks passed.
//
//   misdeeds   upstream servers that misbehave
//   kills      a kill at each system call of a round
//   errors     each system call on files fails
//   disks      file systems without space or inodes, or read-only
//   day        24 hours of rounds
//   every=N    run only every Nth trial
//   jobs=N     run N trials in parallel
//   only=TEXT  run only trials whose name contains TEXT
//   verbose    print what the relay said in each trial
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

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/relay/day.hpp"
#include "tests/faults/relay/full_stores.hpp"
#include "tests/faults/relay/interrupted_rounds.hpp"
#include "tests/faults/relay/misdeed_sweep.hpp"
#include "tests/support/files.hpp"

namespace {

using zot::test::sweep_options;

struct part {
  std::string_view name;
  bool (*run)(const sweep_options &);
};

constexpr part parts[] = {
    {"misdeeds", zot::test::sweep_misdeeds}, {"kills", zot::test::sweep_kills},
    {"errors", zot::test::sweep_errors},     {"disks", zot::test::sweep_full_stores},
    {"day", zot::test::simulate_day},
};

struct wishes {
  sweep_options options;
  std::vector<const part *> wanted;
};

wishes parse(int argc, char **argv) {
  wishes all;
  for (int at = 1; at < argc; ++at) {
    const std::string_view word = argv[at];
    const std::string value(word.substr(word.find('=') + 1));
    if (word.starts_with("every=")) {
      all.options.every = std::stoul(value);
    } else if (word.starts_with("jobs=")) {
      all.options.jobs = static_cast<unsigned>(std::stoul(value));
    } else if (word.starts_with("only=")) {
      all.options.only = value;
    } else if (word == "verbose") {
      all.options.is_verbose = true;
    } else if (const auto *const found = std::ranges::find(parts, word, &part::name);
               found != std::end(parts)) {
      all.wanted.push_back(found);
    } else {
      throw std::invalid_argument("unknown: " + std::string(word));
    }
  }
  return all;
}

bool holds(const part &wanted, const sweep_options &options) {
  try {
    const zot::test::temp_dir work;
    sweep_options own = options;
    own.work = work.path();
    return wanted.run(own);
  } catch (const zot::test::not_allowed &reason) {
    std::printf("left out: %s: %s\n", std::string(wanted.name).c_str(), reason.what());
    return true;
  }
}

}  // namespace

int main(int argc, char **argv) {
  try {
    const wishes all = parse(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    // Sweeps write the same data thousands of times, so write to memory.
    if (::access("/dev/shm", W_OK) == 0) {
      ::setenv("TMPDIR", "/dev/shm", 1);
    }
    bool held = !all.wanted.empty();
    for (const part *const each : all.wanted) {
      held = holds(*each, all.options) && held;
    }
    return held ? 0 : 1;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 2;
  }
}
