// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/power_loss.hpp"

#include <sys/syscall.h>

#include <cstdio>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/operation.hpp"
#include "tests/faults/calls/trials.hpp"

namespace zot::test {
namespace {

// The cache alone: what lies in the scratch area does not outlive a loss of power.
file_tree read_cache(const std::string &root) {
  file_tree cache;
  for (const auto &[name, bytes] : read_tree(root + "/conf")) {
    cache.emplace("conf/" + name, bytes);
  }
  return cache;
}

// The states of the cache while an operation runs, one after the other.
struct history {
  std::vector<file_tree> states;
  bool is_synchronised = false;  // nothing changed after the last synchronisation
};

history record(const operation &observed, const std::string &root, const file_tree &stage,
               const services &offered) {
  const shared_page page;
  write_tree(root, stage);
  history found;
  const auto look = [&](const passed_call &call) {
    file_tree now = read_cache(root);
    if (found.states.empty() || now != found.states.back()) {
      found.states.push_back(std::move(now));
      found.is_synchronised = false;
    }
    found.is_synchronised = found.is_synchronised || call.number == SYS_syncfs;
  };
  const gated_run run = run_gated(
      *page, {},
      [&] {
        return report(*page, root, offered, [&](session &client) {
          prepare(client, observed);
          arm(*page);
          const int status = observed.act(client);
          disarm(*page);
          require(status >= 0, client.error_text());
        });
      },
      look);
  require(!run.hung && run.wait_status == 0,
          std::string(observed.name) + ", undisturbed: " + page->text);
  if (file_tree last = read_cache(root); last != found.states.back()) {
    found.states.push_back(std::move(last));
    found.is_synchronised = false;
  }
  return found;
}

// Files whose content is another one than before, those that came or went included.
std::vector<std::string> changed_files(const file_tree &before, const file_tree &after) {
  std::set<std::string> names;
  for (const file_tree *tree : {&before, &after}) {
    for (const auto &[name, bytes] : *tree) {
      const auto old = before.find(name);
      const auto now = after.find(name);
      const bool same = old != before.end() && now != after.end() && old->second == now->second;
      if (!name.ends_with('/') && !same) {
        names.insert(name);
      }
    }
  }
  return {names.begin(), names.end()};
}

void put_back(file_tree &tree, const file_tree &before, const std::string &name) {
  if (const auto old = before.find(name); old != before.end()) {
    tree[name] = old->second;
  } else {
    tree.erase(name);
  }
}

// One file whose data, or whose name, did not reach the medium.
void add_single_losses(std::set<file_tree> &media, const file_tree &before, const file_tree &state,
                       const std::string &name) {
  file_tree without = state;
  put_back(without, before, name);
  media.insert(without);
  const auto found = state.find(name);
  if (found == state.end()) {
    return;
  }
  const std::size_t size = found->second.size();
  for (const std::string &bytes :
       {std::string(), found->second.substr(0, size / 2), std::string(size, '\0')}) {
    file_tree lost = state;
    lost[name] = bytes;
    media.insert(lost);
  }
  file_tree absent = state;
  absent.erase(name);
  media.insert(absent);
}

void add_common_losses(std::set<file_tree> &media, const file_tree &state,
                       const std::vector<std::string> &names) {
  file_tree empty = state;
  file_tree halves = state;
  for (const std::string &name : names) {
    if (const auto found = state.find(name); found != state.end()) {
      empty[name].clear();
      halves[name] = found->second.substr(0, found->second.size() / 2);
    }
  }
  media.insert(empty);
  media.insert(halves);
}

// Whatever order a file system chooses: each subset of the files has changed already.
void add_subsets(std::set<file_tree> &media, const file_tree &before, const file_tree &last) {
  constexpr std::size_t most = 12;
  const std::vector<std::string> names = changed_files(before, last);
  require(names.size() <= most, "too many files for all subsets");
  for (unsigned subset = 0; subset < 1U << names.size(); ++subset) {
    file_tree state = last;
    for (std::size_t at = 0; at < names.size(); ++at) {
      if ((subset >> at & 1U) == 0) {
        put_back(state, before, names[at]);
      }
    }
    media.insert(state);
  }
}

std::vector<file_tree> media_after(const history &passed) {
  std::set<file_tree> media;
  const file_tree &before = passed.states.front();
  for (const file_tree &state : passed.states) {
    media.insert(state);
    const std::vector<std::string> names = changed_files(before, state);
    for (const std::string &name : names) {
      add_single_losses(media, before, state, name);
    }
    add_common_losses(media, state, names);
  }
  add_subsets(media, before, passed.states.back());
  return {media.begin(), media.end()};
}

// Files that the configuration in force does not name go with the next commit only.
file_tree without_leftovers(file_tree tree, char letter) {
  const std::string config = std::string(conf_folder) + "config";
  const std::map<std::string, std::string> named = configuration(letter).files();
  std::erase_if(tree, [&](const auto &entry) {
    return entry.first.starts_with(config + "/") && !entry.first.ends_with('/') &&
           named.find(entry.first.substr(config.size())) == named.end();
  });
  return tree;
}

struct trial_result {
  bool held;
  char restarted;
};

trial_result try_one(const operation &observed, const file_tree &medium, const std::string &root,
                     const services &offered, const sweep_options &options) {
  trial_result result{};
  const shared_page page;
  try {
    write_tree(root, medium);
    result.restarted = restart(*page, root, offered, observed);
    run_undisturbed(*page, root, offered, [&](session &client) {
      start(client);
      observed.reach(client);
    });
    file_tree disk = read_tree(root);
    if (result.restarted == observed.published) {
      disk = without_leftovers(std::move(disk), observed.published);
    }
    require(letter_on_disk(disk) == observed.published, "the cache has not what was published");
    result.held = true;
  } catch (const std::exception &problem) {
    std::string text = problem.what();
    text = options.with_log ? text : text.substr(0, text.find('\n'));
    for (const auto &[name, bytes] : medium) {
      text += "\n  " + name + ": " + std::to_string(bytes.size()) + " bytes";
    }
    std::fprintf(stderr, "%s, power lost: %s\n", observed.name, text.c_str());
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
  const std::vector<file_tree> media = media_after(passed);
  const std::size_t count = (media.size() + options.every - 1) / options.every;
  const auto results =
      run_trials<trial_result>(count, options.jobs, [&](std::size_t at, unsigned worker) {
        return try_one(observed, media[at * options.every], root + std::to_string(worker), offered,
                       options);
      });
  std::size_t held = 0;
  std::map<char, unsigned> restarted;
  for (const trial_result &result : results) {
    held += result.held ? 1 : 0;
    ++restarted[result.restarted];
  }
  totals.states += passed.states.size();
  totals.tried += count;
  totals.held += held;
  std::printf("%s, power lost: %zu states, %zu forms of the medium tried, %zu held; started anew:",
              observed.name, passed.states.size(), count, held);
  for (const auto &[letter, times] : restarted) {
    std::printf(" %c %u", letter, times);
  }
  const bool has_to_last = observed.prepared == observed.published;
  std::printf("; %s\n", passed.is_synchronised ? "synchronised at the end" : "not synchronised");
  std::fflush(stdout);
  return held == count && (passed.is_synchronised || !has_to_last);
}

}  // namespace

bool sweep_power_losses(const sweep_options &options, const services &offered) {
  bool all_held = true;
  power_totals totals;
  for (const operation &each : operations()) {
    if (options.only.empty() || options.only == each.name) {
      all_held = sweep(each, options, offered, totals) && all_held;
    }
  }
  std::printf("power: lost after each of %zu writes, %zu forms of the medium: %zu held\n",
              totals.states, totals.tried, totals.held);
  return all_held;
}

}  // namespace zot::test
