// SPDX-License-Identifier: Apache-2.0
// usage: faults_relay PART... [every=N] [jobs=N] [only=TEXT] [verbose]
// Runs a relay against faults of one kind after the other. Exits with 0 when all checks passed.
//
//   misdeeds   upstream servers that misbehave
//   every=N    run only every Nth trial
//   jobs=N     run N trials in parallel
//   only=TEXT  run only trials whose name contains TEXT
//   verbose    print what the relay said in each trial
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/faults/relay/misdeed_sweep.hpp"

namespace {

using zot::test::sweep_options;

struct part {
  std::string_view name;
  bool (*run)(const sweep_options &);
};

constexpr part parts[] = {
    {"misdeeds", zot::test::sweep_misdeeds},
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
      all.options.jobs = std::stoul(value);
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

}  // namespace

int main(int argc, char **argv) {
  try {
    const wishes all = parse(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    bool held = !all.wanted.empty();
    for (const part *const each : all.wanted) {
      held = each->run(all.options) && held;
    }
    return held ? 0 : 1;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 2;
  }
}
