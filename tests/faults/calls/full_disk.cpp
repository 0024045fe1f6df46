// SPDX-License-Identifier: Apache-2.0
#include "tests/faults/calls/full_disk.hpp"

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/faults/calls/beside_another.hpp"
#include "tests/faults/calls/operation.hpp"
#include "tests/faults/calls/trials.hpp"
#include "tests/faults/calls/volume.hpp"

namespace zot::test {
namespace {

// More than any operation needs.
constexpr unsigned most_pages = 20;
constexpr unsigned most_files = 30;

constexpr way_on ways_on[] = {way_on::get, way_on::repeat, way_on::roll_back, way_on::new_process};

struct trial {
  const operation *disturbed;
  const char *folder;  // the folder on a separate volume
  shortage lacking;
  unsigned left;  // free pages of 4 KiB, or free inodes
  way_on then;
};

struct trial_result {
  bool held;
  bool refused;
};

class attempt {
 public:
  attempt(const trial &tried, std::string root, const services &offered)
      : tried_(tried),
        disturbed_(*tried.disturbed),
        root_(std::move(root)),
        offered_(offered),
        volume_(root_ + "/" + tried.folder) {}

  trial_result run(const file_tree &stage) {
    add_tree(root_, stage);
    const int status = run_process(*page_, [this] {
      return report(*page_, root_, offered_, [this](session &client) { do_first(client); });
    });
    require(status == 0, page_->text);
    const bool refused = page_->status < 0;
    if (tried_.then == way_on::new_process) {
      start_on_the_full_disk(!refused);
      volume_.give_back();
    }
    run_undisturbed(*page_, root_, offered_, [this](session &client) {
      start(client);
      if (tried_.then == way_on::new_process) {
        disturbed_.reach(client);
      } else {
        get_whole(client, disturbed_.published);
        commit_whole(client, disturbed_.published);
      }
    });
    check_settled(read_tree(root_), disturbed_.published);
    return {true, refused};
  }

 private:
  void do_first(session &client) {
    const disturbance trouble{[this] { volume_.take(tried_.lacking, tried_.left); },
                              [this] { volume_.give_back(); }};
    if (tried_.then != way_on::new_process) {
      disturb(client, disturbed_, trouble, *page_, tried_.then);
      return;
    }
    // The disk stays full after the process has ended.
    disturbed_.prepare(client);
    trouble.begin();
    page_->status = disturbed_.act(client);
  }

  // The configuration in force must be there. A get and a commit must succeed, or fail with a
  // reason.
  void start_on_the_full_disk(bool completed) {
    run_undisturbed(*page_, root_, offered_, [this, completed](session &client) {
      if (!client.start()) {
        return;
      }
      const std::string allowed = completed ? disturbed_.completed : disturbed_.restarted;
      // On a read-only disk the library cannot restore the files, so it reads them in the undo
      // folder.
      if (tried_.lacking == shortage::read_only) {
        check_in_force(client, allowed, allowed);
      } else {
        check_restarted(client, allowed);
      }
      const returned_list got = client.get(disturbed_.published);
      if (got.status != ZOT_OK) {
        check_refusal(client, got.status);
        return;
      }
      require(letter_of_entries(got) == disturbed_.published, "a get returned something else");
      const bool is_commit = disturbed_.completed == std::string{disturbed_.published};
      if (const int status = is_commit ? client.commit() : ZOT_OK; status < 0) {
        check_refusal(client, status);
      }
    });
  }

  const trial &tried_;
  const operation &disturbed_;
  const std::string root_;
  const services &offered_;
  const volume volume_;
  const shared_page page_;
};

std::vector<trial> plan(const operation &disturbed, unsigned every) {
  std::vector<trial> all;
  unsigned turn = 0;
  const auto add = [&](const char *folder, shortage lacking, unsigned left) {
    for (const way_on then : ways_on) {
      const bool is_possible = (then != way_on::repeat || disturbed.is_repeatable) &&
                               (then != way_on::roll_back || disturbed.refuse != nullptr);
      if (is_possible && turn++ % every == 0) {
        all.push_back({&disturbed, folder, lacking, left, then});
      }
    }
  };
  for (const char *const folder : {"conf", "scratch"}) {
    for (unsigned pages = 0; pages <= most_pages; ++pages) {
      add(folder, shortage::room, pages);
    }
    for (unsigned files = 0; files <= most_files; ++files) {
      add(folder, shortage::files, files);
    }
    add(folder, shortage::read_only, 0);
  }
  return all;
}

trial_result try_one(const trial &tried, const std::string &root, const file_tree &stage,
                     const services &offered, bool with_log) {
  try {
    write_tree(root, {});
    return attempt(tried, root, offered).run(stage);
  } catch (const std::exception &problem) {
    const std::string text = problem.what();
    const char *const then[] = {"", ", called again", ", rolled back", ", started anew"};
    std::fprintf(stderr, "%s: %s on %s: %u%s: %s\n", tried.disturbed->name, name_of(tried.lacking),
                 tried.folder, tried.left, then[static_cast<int>(tried.then)],
                 (with_log ? text : text.substr(0, text.find('\n'))).c_str());
    return {};
  }
}

struct disk_totals {
  std::size_t tried = 0;
  unsigned held = 0;
};

bool sweep(const operation &disturbed, const sweep_options &options, const services &offered,
           disk_totals &totals) {
  const std::string root = options.work + "/element";
  const file_tree stage = make_stage(disturbed.from, root, offered);
  const std::vector<trial> trials = plan(disturbed, options.every);
  const auto results =
      run_trials<trial_result>(trials.size(), options.jobs, [&](std::size_t at, unsigned worker) {
        return try_one(trials[at], root + std::to_string(worker), stage, offered, options.with_log);
      });
  unsigned held = 0;
  unsigned refused = 0;
  bool had_enough = options.every > 1;
  for (std::size_t at = 0; at < trials.size(); ++at) {
    held += results[at].held ? 1 : 0;
    refused += results[at].refused ? 1 : 0;
    had_enough = had_enough || (trials[at].left == most_pages && !results[at].refused);
  }
  totals.tried += trials.size();
  totals.held += held;
  std::printf("%s: %zu full or read-only disks: %u held; %u refused%s\n", disturbed.name,
              trials.size(), held, refused, had_enough ? "" : "; never enough room");
  std::fflush(stdout);
  return held == trials.size() && had_enough;
}

}  // namespace

bool sweep_full_disks(const sweep_options &options, const services &offered) {
  if (!enter_own_mounts()) {
    throw not_allowed("this user may mount nothing");
  }
  bool all_held = true;
  disk_totals totals;
  for (const operation &each : all_operations()) {
    if (options.only.empty() || options.only == each.name) {
      all_held = succeeds(each, [&] { return sweep(each, options, offered, totals); }) && all_held;
    }
  }
  std::printf("disks: %zu full or read-only: %u held\n", totals.tried, totals.held);
  return all_held;
}

}  // namespace zot::test
