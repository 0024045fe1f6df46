// SPDX-License-Identifier: Apache-2.0
// usage: faults_service [every=N] [jobs=N] [only=TEXT] [verbose]
// Runs whole gets against a service that misbehaves in one way, for each way and each of the three
// requests. Exits with 0 when everything held.
//
//   every=N    run only every Nth trial
//   jobs=N     run N trials in parallel
//   only=TEXT  run only trials whose name contains TEXT
//   verbose    print the result of each trial
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "tests/faults/service/trial.hpp"

namespace {

using namespace zot::test;

struct wishes {
  std::size_t every = 1;
  std::size_t jobs = 4;
  std::string only;
  bool is_verbose = false;
};

wishes parse(int argc, char **argv) {
  wishes all;
  for (int at = 1; at < argc; ++at) {
    const std::string_view word = argv[at];
    const std::string value(word.substr(word.find('=') + 1));
    if (word.starts_with("every=")) {
      all.every = std::stoul(value);
    } else if (word.starts_with("jobs=")) {
      all.jobs = std::stoul(value);
    } else if (word.starts_with("only=")) {
      all.only = value;
    } else if (word == "verbose") {
      all.is_verbose = true;
    } else {
      throw std::invalid_argument("unknown: " + std::string(word));
    }
  }
  return all;
}

misdeeds every_misdeed() {
  misdeeds all = transfer_misdeeds();
  for (misdeeds more : {protocol_misdeeds(), content_misdeeds()}) {
    std::ranges::move(more, std::back_inserter(all));
  }
  return all;
}

std::vector<trial> trials_of(const misdeeds &all, const wishes &wanted) {
  std::vector<trial> trials;
  std::size_t number = 0;
  for (const misdeed &what : all) {
    for (unsigned at = 0; at < request_count; ++at) {
      const trial next{&what, static_cast<request_kind>(at)};
      if ((what.at & bit_of(next.at)) != 0 && next.name().find(wanted.only) != std::string::npos &&
          number++ % wanted.every == 0) {
        trials.push_back(next);
      }
    }
  }
  return trials;
}

int attempt(const trial &tried, bool is_verbose) {
  try {
    const bool held = run_trial(tried, is_verbose);
    if (is_verbose) {
      std::printf("%s: %s\n", tried.name().c_str(), held ? "held" : "did not hold");
      std::fflush(stdout);
    }
    return held ? 0 : 1;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s:\n  %s\n", tried.name().c_str(), problem.what());
    return 1;
  }
}

// Each in a process of its own, so many at once: most of them wait for a time-out.
std::size_t count_held(const std::vector<trial> &trials, const wishes &wanted) {
  std::size_t held = 0;
  std::size_t running = 0;
  for (std::size_t next = 0; next < trials.size() || running > 0;) {
    if (next < trials.size() && running < wanted.jobs) {
      std::fflush(nullptr);
      const pid_t child = ::fork();
      if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
      }
      if (child == 0) {
        ::_exit(attempt(trials[next], wanted.is_verbose));
      }
      ++next;
      ++running;
      continue;
    }
    int status = 0;
    if (::waitpid(-1, &status, 0) > 0) {
      --running;
      held += status == 0 ? 1 : 0;
    }
  }
  return held;
}

}  // namespace

int main(int argc, char **argv) {
  try {
    const wishes wanted = parse(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    const misdeeds all = every_misdeed();
    const std::vector<trial> trials = trials_of(all, wanted);
    const std::size_t held = count_held(trials, wanted);
    std::printf("service: %zu misdeeds at %u requests: %zu held\n", trials.size(), request_count,
                held);
    return !trials.empty() && held == trials.size() ? 0 : 1;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s\n", problem.what());
    return 2;
  }
}
