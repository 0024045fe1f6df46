// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/relay/interrupted_rounds.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string_view>
#include <vector>

#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/trials.hpp"
#include "tests/faults/calls/watched_calls.hpp"
#include "tests/faults/relay/rounds.hpp"

namespace zot::test {
namespace {

using zotconf::round_result;

struct fault_kind {
  const char *name;
  fault what;
  int error = 0;
  bool lasts = false;
};

constexpr fault_kind killed = {"SIGKILL", fault::kill};
constexpr std::array errors = {fault_kind{"ENOSPC", fault::error, ENOSPC},
                               fault_kind{"ENOSPC from then on", fault::error, ENOSPC, true},
                               fault_kind{"EIO", fault::error, EIO},
                               fault_kind{"EIO from then on", fault::error, EIO, true}};

// The calls that a full disk or a bad medium lets fail.
constexpr std::array<std::string_view, 28> calls_on_disks = {
    "write",   "writev",    "pwrite64", "copy_file_range", "open",      "openat",     "creat",
    "mkdir",   "mkdirat",   "rename",   "renameat",        "renameat2", "link",       "linkat",
    "symlink", "symlinkat", "fsync",    "fdatasync",       "syncfs",    "sync",       "ftruncate",
    "unlink",  "unlinkat",  "read",     "pread64",         "readlink",  "readlinkat", "getdents64"};

// These need no space.
constexpr std::array<std::string_view, 7> reading_calls = {
    "unlink", "unlinkat", "read", "pread64", "readlink", "readlinkat", "getdents64"};

bool is_possible(const fault_kind &kind, const passed_call &call) {
  if (kind.what == fault::kill) {
    return true;
  }
  const std::string name = call_name(call.number);
  return std::ranges::find(calls_on_disks, name) != calls_on_disks.end() &&
         (kind.error != ENOSPC || std::ranges::find(reading_calls, name) == reading_calls.end());
}

struct trial {
  const fault_kind *kind;
  passed_call call;
};

// Written by the worker process.
struct trial_result {
  bool held;
  bool reached;
  bool failed;           // the round reported the failure
  std::uint64_t served;  // by a new process afterwards
};

void write_text(gate_page &page, const std::string &text) {
  const std::size_t size = std::min(text.size(), gate_page::text_size - 1);
  std::memcpy(page.text, text.data(), size);
  page.text[size] = '\0';
}

// What the client at the gate returns.
enum class ended { well, badly, with_failure };

class round_sweep {
 public:
  round_sweep(const sweep_options &options, round_stage &stage, const round_kind &kind)
      : options_(options), stage_(stage), kind_(kind), store_(options.work + "/store") {
    stage_.prepare(kind);
    calls_ = record();
  }

  struct totals {
    std::size_t calls = 0;
    unsigned tried = 0;
    unsigned held = 0;
  };

  bool run(const fault_kind *kinds, std::size_t count, totals &sum) {
    const std::vector<trial> trials = plan(kinds, count);
    const auto results = run_trials<trial_result>(
        trials.size(), options_.jobs, [&](std::size_t at, unsigned worker) {
          return attempt(trials[at], store_ + std::to_string(worker));
        });
    return print(results, sum);
  }

 private:
  // Records the calls of an undisturbed round.
  std::vector<passed_call> record() {
    const shared_page page;
    stage_.copy_to(store_);
    gated_run run = run_gated(*page, {}, [&] { return do_round(*page, store_); });
    require(run.wait_status == 0 && !run.calls.empty(),
            std::string(kind_.name) + ", undisturbed: " + page->text);
    return std::move(run.calls);
  }

  std::vector<trial> plan(const fault_kind *kinds, std::size_t count) const {
    std::vector<trial> all;
    std::size_t turn = 0;
    for (std::size_t at = 0; at < count; ++at) {
      for (const passed_call &call : calls_) {
        if (is_possible(kinds[at], call) && turn++ % options_.every == 0) {
          all.push_back({&kinds[at], call});
        }
      }
    }
    return all;
  }

  // The disturbed round, from the opening of the store. Whatever fails, the same process goes on
  // serving a whole publication, and its next round succeeds.
  int do_round(gate_page &page, const std::string &store) const {
    try {
      arm(page);
      polled_relay relay(stage_.folders(store));
      const zotconf::sync_round round = relay.poll();
      disarm(page);
      const std::uint64_t number = stage_.served(relay.store());
      require(!round.wrong.empty() || number == offered, "the round brought nothing");
      require(round.result != round_result::refused, "refused: " + round.wrong);
      require(relay.poll().wrong.empty(), "the next round fails");
      require(stage_.served(relay.store()) == offered, "the next round brought nothing");
      write_text(page, round.wrong);
      return round.wrong.empty() ? 0 : 2;
    } catch (const std::system_error &error) {
      write_text(page, error.what());
    } catch (const std::exception &problem) {
      write_text(page, problem.what());
      return 1;
    }
    return 2;
  }

  trial_result attempt(const trial &tried, const std::string &store) const {
    trial_result result{};
    const shared_page page;
    try {
      stage_.copy_to(store);
      const planned_fault planned{tried.kind->what, tried.call.place, tried.kind->error,
                                  tried.kind->lasts};
      const gated_run run = run_gated(*page, planned, [&] { return do_round(*page, store); });
      require(!run.hung, "hung");
      result.reached = run.reached;
      check_end(*tried.kind, run, planned.place, page->text);
      result.failed = WIFEXITED(run.wait_status) && WEXITSTATUS(run.wait_status) == 2;
      result.served = stage_.check_store(store);
      stage_.check_way_on(store);
      result.held = true;
    } catch (const std::exception &problem) {
      std::fprintf(stderr, "%s: %s at call %u of process %u, %s: %s\n", kind_.name,
                   tried.kind->name, tried.call.place.call, tried.call.place.process,
                   call_name(tried.call.number).c_str(), problem.what());
    }
    return result;
  }

  // A file that cannot be opened counts as missing, or as one with other bytes. A fault that lasts
  // disturbs the connection too.
  static bool is_reason(const fault_kind &kind, const std::string &text) {
    return text.find(std::strerror(kind.error)) != std::string::npos ||
           text.find("a file of the publication is missing in") != std::string::npos ||
           text.find("does not have the SHA-256 that K states") != std::string::npos ||
           (kind.lasts && text.find("cannot connect to") != std::string::npos);
  }

  static void check_end(const fault_kind &kind, const gated_run &run, const call_place &place,
                        const std::string &text) {
    if (run.reached && kind.what == fault::kill) {
      return;
    }
    require(WIFEXITED(run.wait_status) && WEXITSTATUS(run.wait_status) != 1,
            "ended with " + std::to_string(run.wait_status) + ": " + text);
    // Files arrive in any order, so the place may be that of another call this time.
    const auto hit = std::ranges::find(run.calls, place, &passed_call::place);
    if (WEXITSTATUS(run.wait_status) != 2 || hit == run.calls.end() || !is_possible(kind, *hit)) {
      return;
    }
    require(is_reason(kind, text),
            "the reason of " + call_name(hit->number) + " is not told: " + text);
  }

  bool print(const std::vector<trial_result> &results, totals &sum) const {
    unsigned held = 0;
    unsigned reached = 0;
    unsigned failed = 0;
    unsigned before = 0;
    for (const trial_result &each : results) {
      held += each.held ? 1 : 0;
      reached += each.reached ? 1 : 0;
      failed += each.failed ? 1 : 0;
      before += each.held && each.served != offered ? 1 : 0;
    }
    std::printf(
        "%s: %zu calls; %zu tried, %u reached, %u held; %u reported; afterwards %u times "
        "the publication before, %u times the new one\n",
        kind_.name, calls_.size(), results.size(), reached, held, failed, before, held - before);
    std::fflush(stdout);
    sum.calls += calls_.size();
    sum.tried += static_cast<unsigned>(results.size());
    sum.held += held;
    return !results.empty() && held == results.size();
  }

  const sweep_options &options_;
  round_stage &stage_;
  const round_kind &kind_;
  const std::string store_;
  std::vector<passed_call> calls_;
};

bool sweep(const sweep_options &options, const fault_kind *kinds, std::size_t count,
           round_sweep::totals &sum) {
  adopt_orphans();
  round_stage stage(options.work);
  bool all_held = true;
  for (const round_kind &kind : round_kinds()) {
    if (std::string_view(kind.name).find(options.only) != std::string_view::npos) {
      all_held = round_sweep(options, stage, kind).run(kinds, count, sum) && all_held;
    }
  }
  return all_held;
}

}  // namespace

bool sweep_kills(const sweep_options &options) {
  round_sweep::totals sum;
  const bool held = sweep(options, &killed, 1, sum);
  std::printf("relaykills: %zu calls made, %u kills tried: %u held\n", sum.calls, sum.tried,
              sum.held);
  return held;
}

bool sweep_errors(const sweep_options &options) {
  round_sweep::totals sum;
  const bool held = sweep(options, errors.data(), errors.size(), sum);
  std::printf("relaydisks: %u failing calls tried: %u held\n", sum.tried, sum.held);
  return held;
}

}  // namespace zot::test
