// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/misdeed_sweep.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iterator>
#include <system_error>

#include "tests/faults/relay/relay_check.hpp"

namespace zot::test {
namespace {

misdeeds every_misdeed() {
  misdeeds all;
  for (auto *const table : {transfer_misdeeds, protocol_misdeeds, connection_misdeeds,
                            signature_misdeeds, knowledge_misdeeds}) {
    std::ranges::move(table(), std::back_inserter(all));
  }
  return all;
}

misdeeds chosen(misdeeds all, const sweep_options &options) {
  misdeeds kept;
  std::size_t number = 0;
  for (misdeed &each : all) {
    if (each.name.find(options.only) != std::string::npos && number++ % options.every == 0) {
      kept.push_back(std::move(each));
    }
  }
  return kept;
}

int attempt(const misdeed &tried, const cast &all, bool is_verbose) {
  try {
    const std::string trouble = check_relay(tried, all, is_verbose);
    std::fflush(stdout);
    if (trouble.empty()) {
      return 0;
    }
    std::fprintf(stderr, "%s:\n%s", tried.name.c_str(), trouble.c_str());
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s:\n  %s\n", tried.name.c_str(), problem.what());
  }
  return 1;
}

// Runs each trial in a separate process, several in parallel, because many of them wait for a
// time-out.
std::size_t count_held(const misdeeds &rows, const cast &all, const sweep_options &options) {
  std::size_t held = 0;
  std::size_t running = 0;
  for (std::size_t next = 0; next < rows.size() || running > 0;) {
    if (next < rows.size() && running < options.jobs) {
      std::fflush(nullptr);
      const pid_t child = ::fork();
      if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
      }
      if (child == 0) {
        ::_exit(attempt(rows[next], all, options.is_verbose));
      }
      ++next;
      ++running;
      continue;
    }
    int status = 0;
    if (::waitpid(-1, &status, 0) > 0) {
      if (WIFSIGNALED(status)) {
        std::fprintf(stderr, "a relay was ended by signal %d\n", WTERMSIG(status));
      }
      --running;
      held += status == 0 ? 1 : 0;
    }
  }
  return held;
}

}  // namespace

bool sweep_misdeeds(const sweep_options &options) {
  const cast all;
  const misdeeds rows = chosen(every_misdeed(), options);
  const std::size_t held = count_held(rows, all, options);
  std::printf("relay: %zu misdeeds of an upstream server tried: %zu held\n", rows.size(), held);
  std::fflush(stdout);
  return !rows.empty() && held == rows.size();
}

}  // namespace zot::test
