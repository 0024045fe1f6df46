// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/call_sweep.hpp"

#include <cerrno>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <vector>

#include "tests/faults/calls/beside_another.hpp"
#include "tests/faults/calls/gate.hpp"
#include "tests/faults/calls/operation.hpp"
#include "tests/faults/calls/trials.hpp"
#include "tests/faults/calls/watched_calls.hpp"

namespace zot::test {
namespace {

struct fault_kind {
  const char *name;
  fault what;
  int error = 0;
  bool lasts = false;
};

constexpr fault_kind fault_kinds[] = {
    {"EIO", fault::error, EIO},
    {"ENOSPC", fault::error, ENOSPC},
    {"EMFILE", fault::error, EMFILE},
    {"ENOMEM", fault::error, ENOMEM},
    {"EINTR", fault::error, EINTR},
    {"EPERM", fault::error, EPERM},
    {"EIO from then on", fault::error, EIO, true},
    {"ENOSPC from then on", fault::error, ENOSPC, true},
    {"cut short", fault::cut_short},
    {"SIGKILL", fault::kill},
};

struct trial {
  const fault_kind *kind;
  passed_call call;
  way_on then;
};

// Written by the worker process.
struct trial_result {
  bool reached;
  bool held;
  bool refused;
  bool is_complete;  // the cache has what was published, e.g. after a refusal and a get
  char restarted;    // in force for a new process afterwards; or 0
};

struct sweep_totals {
  unsigned calls = 0;
  unsigned errors = 0;
  unsigned kills = 0;
  unsigned held = 0;
};

// Only link calls fail with EPERM here: this is how a file system without hard links refuses them.
bool is_possible(const fault_kind &kind, const passed_call &call) {
  if (kind.what == fault::error && kind.error == EPERM) {
    return is_link_call(call.number);
  }
  return kind.what != fault::cut_short || find_call(call.number)->flow != byte_flow::neither;
}

const char *told(way_on then) {
  switch (then) {
    case way_on::repeat:
      return ", called again";
    case way_on::roll_back:
      return ", rolled back";
    case way_on::new_process:
      return ", started anew";
    default:
      return "";
  }
}

class operation_sweep {
 public:
  operation_sweep(const sweep_options &options, const services &offered, const operation &disturbed)
      : options_(options),
        offered_(offered),
        disturbed_(disturbed),
        root_(options.work + "/element"),
        stage_(make_stage(disturbed.from, root_, offered)) {}

  bool run(sweep_totals &totals) {
    plan(record());
    const auto results = run_trials<trial_result>(
        trials_.size(), options_.jobs, [this](std::size_t at, unsigned worker) {
          return attempt(trials_[at], root_ + std::to_string(worker));
        });
    return print(results, totals);
  }

 private:
  // Records the calls of an undisturbed operation.
  std::vector<passed_call> record() {
    const shared_page page;
    write_tree(root_, stage_);
    gated_run run = run_gated(*page, {}, disturbed_client(*page, root_, way_on::get));
    if (run.wait_status != 0 || page->status < 0 || run.calls.empty()) {
      throw std::runtime_error(std::string(disturbed_.name) + ", undisturbed: " + page->text);
    }
    return std::move(run.calls);
  }

  void plan(const std::vector<passed_call> &calls) {
    calls_ = calls.size();
    for (const passed_call &call : calls) {
      processes_ = std::max(processes_, call.place.process + 1);
    }
    unsigned skew = 0;
    for (const fault_kind &kind : fault_kinds) {
      unsigned turn = skew++;
      for (const passed_call &call : calls) {
        if (!is_possible(kind, call)) {
          continue;
        }
        // Over all kinds of errors, each call is combined with every way to continue.
        if (turn++ % options_.every == 0) {
          trials_.push_back({&kind, call, way_for(kind, turn / options_.every)});
        }
      }
    }
  }

  [[nodiscard]] way_on way_for(const fault_kind &kind, unsigned turn) const {
    if (kind.what == fault::kill) {
      return way_on::new_process;
    }
    std::vector<way_on> ways = {way_on::get, way_on::new_process};
    if (disturbed_.is_repeatable) {
      ways.push_back(way_on::repeat);
    }
    if (disturbed_.refuse != nullptr) {
      ways.push_back(way_on::roll_back);
    }
    return ways[turn % ways.size()];
  }

  // The client at the gate. disarm() waits for commands that are still running.
  std::function<int()> disturbed_client(gate_page &page, const std::string &root, way_on then) {
    return [this, &page, root, then] {
      return report(page, root, offered_, [this, &page, then](session &client) {
        const disturbance at_the_gate{[&page] { arm(page); }, [&page] { disarm(page); }};
        disturb(client, disturbed_, at_the_gate, page, then);
      });
    };
  }

  trial_result attempt(const trial &tried, const std::string &root) {
    trial_result result{};
    const shared_page page;
    try {
      write_tree(root, stage_);
      const planned_fault planned{tried.kind->what, tried.call.place, tried.kind->error,
                                  tried.kind->lasts};
      const gated_run run = run_gated(*page, planned, disturbed_client(*page, root, tried.then));
      require(!run.hung, "hung");
      result.reached = run.reached;
      const bool killed = run.reached && tried.kind->what == fault::kill;
      require(killed || run.wait_status == 0,
              "ended with " + std::to_string(run.wait_status) + ": " + page->text);
      result.refused = page->status < 0;
      result.is_complete = letter_on_disk(read_tree(root)) == disturbed_.published;
      const bool starts_anew = tried.then == way_on::new_process;
      if (starts_anew) {
        const bool completed = !killed && !result.refused;
        result.restarted =
            restart(*page, root, offered_, completed ? disturbed_.completed : disturbed_.restarted);
      }
      reach_anew(*page, root, starts_anew);
      result.held = true;
    } catch (const std::exception &problem) {
      complain(tried, problem.what());
    }
    return result;
  }

  // A new process with a running service must reach the published configuration.
  void reach_anew(gate_page &page, const std::string &root, bool starts_anew) {
    run_undisturbed(page, root, offered_, [this, starts_anew](session &client) {
      start(client);
      if (starts_anew) {
        disturbed_.reach(client);
      } else {
        get_whole(client, disturbed_.published);
        commit_whole(client, disturbed_.published);
      }
    });
    check_settled(read_tree(root), disturbed_.published);
  }

  void complain(const trial &tried, const std::string &problem) const {
    const std::string shown = options_.with_log ? problem : problem.substr(0, problem.find('\n'));
    std::fprintf(stderr, "%s: %s at call %u of process %u, %s%s: %s\n", disturbed_.name,
                 tried.kind->name, tried.call.place.call, tried.call.place.process,
                 call_name(tried.call.number).c_str(), told(tried.then), shown.c_str());
  }

  bool print(const std::vector<trial_result> &results, sweep_totals &totals) const;

  const sweep_options &options_;
  const services &offered_;
  const operation &disturbed_;
  std::string root_;
  const file_tree stage_;
  std::vector<trial> trials_;
  std::size_t calls_ = 0;
  unsigned processes_ = 0;
};

struct tally {
  unsigned tried = 0;
  unsigned held = 0;
  unsigned refused = 0;
  unsigned complete = 0;
  std::map<char, unsigned> restarted;

  void add(const trial_result &result) {
    ++tried;
    held += result.held ? 1 : 0;
    refused += result.refused ? 1 : 0;
    complete += result.is_complete ? 1 : 0;
    if (result.restarted != '\0') {
      ++restarted[result.restarted];
    }
  }
};

bool operation_sweep::print(const std::vector<trial_result> &results, sweep_totals &totals) const {
  std::map<const fault_kind *, tally> by_kind;
  std::map<std::string, tally> by_call;
  tally gets;
  unsigned missed = 0;
  bool all_held = true;
  for (std::size_t at = 0; at < results.size(); ++at) {
    const trial &tried = trials_[at];
    const trial_result &result = results[at];
    all_held = all_held && result.held;
    if (result.held && !result.reached) {
      ++missed;
      continue;
    }
    by_kind[tried.kind].add(result);
    (tried.kind->what == fault::kill ? totals.kills : totals.errors) += 1;
    totals.held += result.held ? 1 : 0;
    by_call[call_name(tried.call.number)].add(result);
    if (tried.then == way_on::get && result.refused) {
      gets.add(result);
    }
  }
  totals.calls += static_cast<unsigned>(calls_);
  std::printf("%s: %zu calls in %u processes\n", disturbed_.name, calls_, processes_);
  for (const fault_kind &kind : fault_kinds) {
    const tally &sum = by_kind[&kind];
    std::printf("%s: %s: %u tried, %u held; %u refused; started anew:", disturbed_.name, kind.name,
                sum.tried, sum.held, sum.refused);
    for (const auto &[letter, count] : sum.restarted) {
      std::printf(" %c %u", letter, count);
    }
    std::printf("\n");
  }
  std::printf("%s: after a refusal and a get, the cache held what was published %u of %u times\n",
              disturbed_.name, gets.complete, gets.tried);
  std::printf("%s: %u not reached; by call:", disturbed_.name, missed);
  for (const auto &[name, sum] : by_call) {
    std::printf(" %s %u/%u", name.c_str(), sum.held, sum.tried);
  }
  std::printf("\n");
  std::fflush(stdout);
  return all_held;
}

}  // namespace

bool sweep_calls(const sweep_options &options, const services &offered) {
  bool all_held = true;
  sweep_totals totals;
  for (const operation &each : all_operations()) {
    if (options.only.empty() || options.only == each.name) {
      all_held =
          succeeds(each, [&] { return operation_sweep(options, offered, each).run(totals); }) &&
          all_held;
    }
  }
  std::printf("calls: %u made; %u errors and %u kills tried: %u held\n", totals.calls,
              totals.errors, totals.kills, totals.held);
  return all_held;
}

}  // namespace zot::test
