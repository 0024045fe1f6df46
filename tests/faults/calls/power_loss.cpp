// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/power_loss.hpp"

#include <sys/syscall.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/medium.hpp"
#include "tests/faults/calls/operation.hpp"
#include "tests/faults/calls/trials.hpp"

namespace zot::test {
namespace {

constexpr const char *cache_folder = "conf";

// The possible contents of the medium during an operation and after it, and the cache when
// everything is written.
struct history {
  std::size_t states = 0;
  std::set<medium> passed;
  std::set<medium> completed;
  file_tree cache;
};

// Only the cache: the scratch area does not survive a power loss.
file_tree read_cache(const std::string &root) {
  file_tree cache;
  for (const auto &[name, bytes] : read_tree(root + "/" + cache_folder)) {
    cache.emplace(std::string(cache_folder) + "/" + name, bytes);
  }
  return cache;
}

void follow(const passed_call &call, const std::string &root, medium_watch &watched) {
  watched.look();
  if (call.number == SYS_sync) {
    watched.synchronise();
    return;
  }
  if (call.number != SYS_syncfs && call.number != SYS_fsync && call.number != SYS_fdatasync) {
    return;
  }
  const std::string handle =
      "/proc/" + std::to_string(call.caller) + "/fd/" + std::to_string(call.argument);
  const std::string path = std::filesystem::read_symlink(handle).string();
  if (!path.starts_with(root + "/" + cache_folder)) {
    return;
  }
  if (call.number == SYS_syncfs) {
    watched.synchronise();
  } else {
    watched.synchronise(id_of(handle));
  }
}

history record(const operation &observed, const std::string &root, const file_tree &stage,
               const services &offered) {
  const shared_page page;
  write_tree(root, stage);
  medium_watch watched(root, cache_folder);
  const gated_run run = run_gated(
      *page, {},
      [&] {
        return report(*page, root, offered, [&](session &client) {
          arm(*page);
          observed.prepare(client);
          const int status = observed.act(client);
          disarm(*page);
          require(status >= 0, client.error_text());
        });
      },
      [&](const passed_call &call) { follow(call, root, watched); });
  require(!run.hung && run.wait_status == 0,
          std::string(observed.name) + ", undisturbed: " + page->text);
  watched.look();
  return {watched.states(), watched.passed(), watched.possible_now(), read_cache(root)};
}

// One content of the medium, and whether the operation had already returned.
struct trial {
  medium held;
  bool completed = false;
};

std::vector<trial> plan(const history &passed) {
  std::vector<trial> all;
  for (const medium &held : passed.completed) {
    all.push_back({held, true});
  }
  for (const medium &held : passed.passed) {
    if (!passed.completed.contains(held)) {
      all.push_back({held, false});
    }
  }
  return all;
}

struct trial_result {
  bool held;
  char restarted;
};

void try_medium(const operation &observed, const trial &tried, const history &passed,
                const std::string &root, const services &offered, trial_result &result) {
  const shared_page page;
  const bool has_to_last = observed.lasts && tried.completed;
  write_medium(root, tried.held);
  const std::string allowed =
      tried.completed ? std::string{letter_on_disk(passed.cache)} : observed.restarted;
  result.restarted = restart(*page, root, offered, allowed);
  require(!has_to_last || read_cache(root) == passed.cache, "what was done did not last");
  run_undisturbed(*page, root, offered, [&](session &client) {
    start(client);
    observed.reach(client);
  });
  check_settled(read_tree(root), observed.published);
}

trial_result try_one(const operation &observed, const trial &tried, const history &passed,
                     const std::string &root, const services &offered,
                     const sweep_options &options) {
  trial_result result{};
  try {
    try_medium(observed, tried, passed, root, offered, result);
    result.held = true;
  } catch (const std::exception &problem) {
    std::string text = problem.what();
    text = options.with_log ? text : text.substr(0, text.find('\n'));
    for (const auto &[name, bytes] : tried.held.tree) {
      text += "\n  " + name +
              (name.ends_with('/') ? "" : ": " + std::to_string(bytes.size()) + " bytes");
    }
    std::fprintf(stderr, "%s, power lost%s: %s\n", observed.name,
                 tried.completed ? " after it" : "", text.c_str());
  }
  return result;
}

struct power_totals {
  std::size_t states = 0;
  std::size_t tried = 0;
  std::size_t held = 0;
};

bool sweep(const operation &observed, const sweep_options &options, const services &offered,
           power_totals &totals) {
  const std::string root = options.work + "/element";
  const file_tree stage = make_stage(observed.from, root, offered);
  const history passed = record(observed, root, stage, offered);
  const std::vector<trial> trials = plan(passed);
  const std::size_t count = (trials.size() + options.every - 1) / options.every;
  const auto results =
      run_trials<trial_result>(count, options.jobs, [&](std::size_t at, unsigned worker) {
        return try_one(observed, trials[at * options.every], passed, root + std::to_string(worker),
                       offered, options);
      });
  std::size_t held = 0;
  std::size_t completed = 0;
  std::map<char, unsigned> restarted;
  for (std::size_t at = 0; at < count; ++at) {
    held += results[at].held ? 1 : 0;
    completed += trials[at * options.every].completed ? 1 : 0;
    if (results[at].restarted != '\0') {
      ++restarted[results[at].restarted];
    }
  }
  totals.states += passed.states;
  totals.tried += count;
  totals.held += held;
  std::printf(
      "%s, power lost: %zu states, %zu forms of the medium tried, %zu of them after the end, %zu "
      "held; started anew:",
      observed.name, passed.states, count, completed, held);
  for (const auto &[letter, times] : restarted) {
    std::printf(" %c %u", letter, times);
  }
  std::printf("\n");
  std::fflush(stdout);
  return held == count;
}

}  // namespace

bool sweep_power_losses(const sweep_options &options, const services &offered) {
  bool all_held = true;
  power_totals totals;
  for (const operation &each : operations()) {
    if (options.only.empty() || options.only == each.name) {
      all_held = succeeds(each, [&] { return sweep(each, options, offered, totals); }) && all_held;
    }
  }
  std::printf("power: lost after each of %zu writes, %zu forms of the medium: %zu held\n",
              totals.states, totals.tried, totals.held);
  return all_held;
}

}  // namespace zot::test
