// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/full_stores.hpp"

#include <cstdio>
#include <exception>
#include <system_error>
#include <vector>

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/trials.hpp"
#include "tests/faults/calls/volume.hpp"
#include "tests/faults/relay/rounds.hpp"

namespace zot::test {
namespace {

// More than any round needs.
constexpr unsigned most_pages = 60;
constexpr unsigned most_files = 30;

struct trial {
  shortage lacking;
  unsigned left;  // free pages of 4 KiB, or free inodes
};

struct trial_result {
  bool held;
  bool failed;
};

std::vector<trial> plan(std::size_t every) {
  std::vector<trial> all;
  std::size_t turn = 0;
  const auto add = [&](shortage lacking, unsigned left) {
    if (turn++ % every == 0) {
      all.push_back({lacking, left});
    }
  };
  for (unsigned pages = 0; pages <= most_pages; ++pages) {
    add(shortage::room, pages);
  }
  for (unsigned files = 0; files <= most_files; ++files) {
    add(shortage::files, files);
  }
  add(shortage::read_only, 0);
  return all;
}

// Whether a text names one of the reasons for which nothing can be written.
bool tells_reason(const std::string &text) {
  for (const int error : {ENOSPC, EROFS}) {
    if (text.find(std::generic_category().message(error)) != std::string::npos) {
      return true;
    }
  }
  return text.find("no space left in the store") != std::string::npos;
}

// Two rounds of a relay on the full volume. Returns whether they failed.
bool rounds_fail(const round_stage &stage, polled_relay &relay) {
  const zotconf::sync_round round = relay.poll();
  require(round.wrong.empty() || tells_reason(round.wrong),
          "the reason is not told: " + round.wrong);
  require(relay.told().find(round.wrong) != std::string::npos, "not told: " + round.wrong);
  const zotconf::sync_round again = relay.poll();
  // The file that finds no space first may be another one, because files arrive in any order.
  require(again.wrong.empty() == round.wrong.empty() &&
              (again.wrong.empty() || tells_reason(again.wrong)),
          "another reason in the next round: " + again.wrong);
  require(again.wrong != round.wrong || relay.told().find("failing") == std::string::npos,
          "told twice: " + round.wrong);
  static_cast<void>(stage.served(relay.store()));
  return !round.wrong.empty();
}

// A file system with an open file that may be written cannot become read-only, so there the relay
// is a new process.
bool starts_or_fails(const round_stage &stage, const std::string &store) {
  try {
    polled_relay relay(stage.folders(store));
    return rounds_fail(stage, relay);
  } catch (const std::system_error &error) {
    require(tells_reason(error.what()), error.what());
    return true;
  }
}

bool fails_on(const volume &disk, const round_stage &stage, const std::string &store,
              const trial &tried) {
  if (tried.lacking == shortage::read_only) {
    disk.take(tried.lacking, tried.left);
    return starts_or_fails(stage, store);
  }
  polled_relay relay(stage.folders(store));
  disk.take(tried.lacking, tried.left);
  return rounds_fail(stage, relay);
}

void check_new_process(const round_stage &stage, const std::string &store, const trial &tried) {
  try {
    static_cast<void>(stage.check_store(store));
  } catch (const std::system_error &error) {
    require(tried.lacking == shortage::read_only && tells_reason(error.what()), error.what());
  }
}

trial_result try_one(const round_stage &stage, const std::string &root, const round_kind &kind,
                     const trial &tried) {
  trial_result result{};
  try {
    const volume disk(root);
    const std::string store = root + "/store";
    stage.copy_to(store);
    result.failed = fails_on(disk, stage, store, tried);
    check_new_process(stage, store, tried);
    disk.give_back();
    static_cast<void>(stage.check_store(store));
    stage.check_way_on(store);
    result.held = true;
  } catch (const std::exception &problem) {
    std::fprintf(stderr, "%s: %u %s: %s\n", kind.name, tried.left, name_of(tried.lacking),
                 problem.what());
  }
  return result;
}

}  // namespace

bool sweep_full_stores(const sweep_options &options) {
  if (!enter_own_mounts()) {
    throw not_allowed("this user may mount nothing");
  }
  round_stage stage(options.work);
  const std::vector<trial> trials = plan(options.every);
  std::size_t tried = 0;
  unsigned held = 0;
  bool had_enough = true;
  for (const round_kind &kind : round_kinds()) {
    stage.prepare(kind);
    const auto results =
        run_trials<trial_result>(trials.size(), options.jobs, [&](std::size_t at, unsigned worker) {
          return try_one(stage, options.work + "/disk" + std::to_string(worker), kind, trials[at]);
        });
    unsigned failed = 0;
    bool ever_enough = options.every > 1;
    for (std::size_t at = 0; at < results.size(); ++at) {
      held += results[at].held ? 1 : 0;
      failed += results[at].failed ? 1 : 0;
      ever_enough = ever_enough || (trials[at].left == most_pages && !results[at].failed);
    }
    tried += results.size();
    had_enough = had_enough && ever_enough;
    std::printf("%s: %zu full or read-only disks; %u failed%s\n", kind.name, results.size(), failed,
                ever_enough ? "" : "; never enough room");
  }
  std::printf("relaydisks: %zu full or read-only: %u held\n", tried, held);
  return held == tried && had_enough;
}

}  // namespace zot::test
