// SPDX-License-Identifier: Apache-2.0
#include "tools/element/watch.hpp"

#include <algorithm>
#include <csignal>
#include <ostream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tools/element/applied.hpp"
#include "tools/element/apply.hpp"
#include "tools/element/backoff.hpp"
#include "tools/element/cycle_report.hpp"
#include "tools/element/foreign.hpp"
#include "tools/element/notify.hpp"
#include "tools/element/running_command.hpp"
#include "tools/element/state_tracker.hpp"
#include "tools/element/wake_up.hpp"
#include "tools/element/watch_report.hpp"
#include "tools/output/duration.hpp"
#include "tools/output/environment.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/hint.hpp"

namespace zotconf {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

std::string size_of(const entries &list) {
  return counted(static_cast<uint64_t>(std::ranges::distance(list)), "entry", "entries");
}

// What the command decided about a configuration.
struct decision {
  std::string k;  // the bytes of K
  bool accepted = false;
  watch_report news;  // to be reported when it is carried out
};

class watcher {
 public:
  watcher(const watch_options &options, handle &element, state_tracker &state, const console &where)
      : options_(options),
        element_(element),
        state_(state),
        where_(where),
        reporter_(where, manager_),
        backoff_(options.backoff_min, options.backoff_max, std::random_device()()) {}

  void run() {
    reporter_.tell({.what = watch_event::starting,
                    .text = options_.element.subsys + " " + options_.element.index + ", every " +
                            duration_text(options_.every),
                    .hint = std::string(has_configuration(element_) ? "" : no_configuration_yet)});
    state_.started();
    if (options_.apply_cached_at_start) {
      reporter_.tell(hand_over_in_force());
    }
    while (!is_stopped()) {
      rest(step());
    }
    manager_.stopping();
    reporter_.tell({.what = watch_event::stopping, .text = reason_to_stop()});
  }

 private:
  using clock = wake_up::clock;

  [[nodiscard]] bool is_stopped() const { return wake_.stop_signal() != 0; }

  // Waits for an event until `end`, and sends the service manager its watchdog message when due.
  void wait_until(clock::time_point end) {
    wake_.wait_until(std::min(end, manager_.next_sign()));
    manager_.show_life(clock::now());
  }

  void rest(milliseconds pause) {
    const clock::time_point end = clock::now() + pause;
    while (!is_stopped() && clock::now() < end) {
      wait_until(end);
    }
  }

  // Does one get and handles the result. Returns the pause before the next get.
  milliseconds step() {
    manager_.show_life(clock::now());
    const entries list = element_.get(categories_, change::differences);
    if (!is_ready_) {
      is_ready_ = true;
      manager_.ready();
    }
    if (is_stopped()) {
      return 0ms;
    }
    const status &result = list.result();
    if (result == ZOT_ERR_SAME_AS_CORRUPTED) {
      return conclude(ZOT_SLOT_CORRUPTED,
                      {.what = watch_event::same_as_rolled_back, .status = result.code()});
    }
    if (result.is_error()) {
      return fail({.what = watch_event::service_failing,
                   .text = result.text(),
                   .status = result.code(),
                   .hint = hint_of(result.text(), element_.c_handle()->tmp_root)});
    }
    return element_.is_new() ? take(list)
                             : conclude(ZOT_SLOT_CURRENT, {.what = watch_event::no_update});
  }

  // The bytes of a slot's K; empty when it has none.
  [[nodiscard]] std::string bytes_of(uint32_t slot) const {
    const zot_k *const k = zot_priv_get_k(element_.c_handle(), slot);
    return k != nullptr && k->data != nullptr ? std::string(k->data, k->data_len) : "";
  }

  // Handles a get without a new configuration. The get may have completed a commit or rollback that
  // failed before; then it reports that one.
  milliseconds conclude(uint32_t slot, const watch_report &news) {
    const auto decided = std::exchange(decided_, std::nullopt);
    const bool is_so =
        decided && decided->accepted == (slot == ZOT_SLOT_CURRENT) && decided->k == bytes_of(slot);
    if (slot_of(ZOT_SLOT_CURRENT).k != nullptr && is_astray()) {
      const watch_report handed = hand_over_in_force();
      const bool is_failed = handed.what == watch_event::apply_failing ||
                             (handed.status && handed.status != ZOT_ERR_NO_CACHE);
      if (is_failed) {
        return fail(
            {.what = watch_event::apply_failing, .text = handed.text, .status = handed.status});
      }
      // A configuration without entries counts as applied, so this is reported only once.
      remember_applied(ZOT_SLOT_CURRENT);
      reporter_.tell(handed);
    }
    return settle(is_so ? decided->news : news);
  }

  [[nodiscard]] const zot_slot &slot_of(uint32_t which) const {
    return element_.c_handle()->slot[which];
  }

  // The metadata of the K in memory, from which the list was made. The one in the cache may be
  // newer: another process may have committed since.
  [[nodiscard]] std::optional<metadata> metadata_in_memory() const {
    const zot_k *const k = slot_of(ZOT_SLOT_CURRENT).k;
    if (k == nullptr) {
      return std::nullopt;
    }
    return metadata{k->meta.firmware_version, k->meta.config_id, k->meta.cluster_id};
  }

  // Whether the command has applied another configuration than the one in force, because its commit
  // has failed or another process has committed or rolled back. At the start the configuration in
  // force counts as applied, unless --apply-cached-at-start passes it to the command first. In dev
  // mode nothing comes into force.
  [[nodiscard]] bool is_astray() {
    if (element_.c_handle()->dev_mode != 0) {
      return false;
    }
    if (!applied_ && !options_.apply_cached_at_start) {
      remember_applied(ZOT_SLOT_CURRENT);
    }
    return !applied_ || !applied_->is_in(slot_of(ZOT_SLOT_CURRENT));
  }

  void remember_applied(uint32_t slot) { applied_.emplace(slot_of(slot), categories_); }

  // A complete list as changes from what the command applied last.
  [[nodiscard]] std::vector<change_line> changes_to(const entries &whole) const {
    return applied_ ? applied_->changes_to(whole) : lines_of(whole);
  }

  // Passes a new configuration to the command and commits or rolls back as it decides. If it has
  // already decided about this configuration, only that decision is carried out.
  milliseconds take(const entries &list) {
    const std::string k = bytes_of(ZOT_SLOT_TMP);
    if (decided_ && decided_->k == k) {
      return carry_out();
    }
    decided_.reset();
    for (const uint32_t slot : {ZOT_SLOT_CURRENT, ZOT_SLOT_TMP}) {
      warn_of_foreign_configuration(*element_.c_handle(), slot, options_.element.index,
                                    where_.err());
    }
    const auto from = element_.metadata_of(generation::fetched);
    std::optional<command_end> end;
    try {
      end = is_astray() ? apply_whole(from) : apply(list, lines_of(list), from);
    } catch (const std::exception &error) {
      return fail({.what = watch_event::apply_failing, .text = error.what()});
    }
    if (!end) {
      is_undecided_ = true;
      return 0ms;
    }
    if (end->said == answer::none) {
      return fail({.what = watch_event::apply_failing, .text = end->text});
    }
    const bool is_accepted = end->said == answer::accepted;
    watch_report news{.what = is_accepted ? watch_event::committed : watch_event::rolled_back,
                      .text = is_accepted ? size_of(list) : "apply: " + end->text};
    if (from && !from->config_id.empty()) {
      news.config_id = from->config_id;
    }
    decided_ = decision{.k = k, .accepted = is_accepted, .news = news};
    if (is_accepted) {
      remember_applied(ZOT_SLOT_TMP);
    }
    return carry_out();
  }

  // Passes the configuration in force to the command, which cannot refuse it. The report has a
  // status when there is nothing to pass on.
  watch_report hand_over_in_force() {
    const entries list = element_.get(categories_, change::cached);
    watch_report news{.what = watch_event::applied_cached, .text = list.result().text()};
    if (list.result().is_error()) {
      news.status = list.result().code();
      return news;
    }
    if (!has_entry_in_force(list)) {
      // The list would have deletions only, so the command would delete everything that was in
      // force before.
      news.text = "no entry is in force, CMD was not run";
      news.status = ZOT_ERR_NO_CACHE;
      return news;
    }
    try {
      const auto end = apply(list, changes_to(list), metadata_in_memory());
      if (end && end->said == answer::none) {
        return {.what = watch_event::apply_failing, .text = end->text};
      }
      news.text = size_of(list) + ", " + (end ? end->text : "interrupted");
      remember_applied(ZOT_SLOT_CURRENT);
    } catch (const std::exception &error) {
      return {.what = watch_event::apply_failing, .text = error.what()};
    }
    return news;
  }

  // Passes on a new configuration as a complete one, because the command has applied another one
  // than that in force.
  std::optional<command_end> apply_whole(const std::optional<metadata> &from) {
    const entries whole = element_.get(categories_, change::cached);
    if (whole.result().is_error()) {
      throw std::runtime_error(whole.result().text());
    }
    if (!element_.is_new()) {
      throw std::runtime_error("another process has committed or rolled back meanwhile");
    }
    std::vector<change_line> changes = changes_to(whole);
    std::erase_if(changes, [](const change_line &line) { return line.what == change::unchanged; });
    return apply(whole, changes, from);
  }

  // Runs the command. Returns how it ended, or nullopt when a signal to stop came first.
  std::optional<command_end> apply(const entries &list, const std::vector<change_line> &changes,
                                   const std::optional<metadata> &from) {
    const temporary_folder scratch;
    const fs::path folder = scratch.path() / "files";
    const fs::path change_list = scratch.path() / "changes.json";
    write_entries(folder, list);
    write_change_list(change_list, changes, from);
    const auto &limit = options_.element.apply_timeout;
    const clock::time_point end_of_limit = limit ? clock::now() + *limit : clock::time_point::max();
    running_command command(options_.element.command, folder, change_list);
    while (!is_stopped() && clock::now() < end_of_limit) {
      if (auto end = command.poll()) {
        return end;
      }
      wait_until(end_of_limit);
    }
    if (auto end = command.poll()) {
      return end;
    }
    command.stop();
    return is_stopped() ? std::nullopt : std::optional(end_of_time(*limit));
  }

  // Commits or rolls back. After a failure, the next get either completes it or offers the
  // configuration again, because another process may have taken its files from the scratch area.
  milliseconds carry_out() {
    const status done = decided_->accepted ? element_.commit() : element_.roll_back();
    if (done.is_error()) {
      return fail(
          {.what = watch_event::verdict_failing, .text = done.text(), .status = done.code()});
    }
    return settle(std::exchange(decided_, std::nullopt)->news);
  }

  // After a success: the next get is due at the regular interval.
  milliseconds settle(const watch_report &news) {
    if (is_failing()) {
      reporter_.tell({.what = watch_event::recovered});
    }
    backoff_.reset();
    tell_change(news);
    state_.succeeded(news.what == watch_event::rolled_back ? news.text : "");
    return options_.every;
  }

  milliseconds fail(watch_report news) {
    const milliseconds pause = backoff_.next();
    news.retry = pause;
    tell_change(news);
    state_.failed(action_of(news.what) + ": " + news.text +
                  (news.hint.empty() ? "" : ": " + news.hint));
    return pause;
  }

  // What has failed.
  [[nodiscard]] std::string action_of(watch_event failure) const {
    if (failure == watch_event::apply_failing) {
      return "apply";
    }
    if (failure == watch_event::verdict_failing) {
      return decided_ && decided_->accepted ? "commit" : "roll-back";
    }
    return "get";
  }

  // Reports an outcome only when it differs from the last one. Commits and rollbacks are always
  // reported.
  void tell_change(const watch_report &news) {
    const bool is_decision =
        news.what == watch_event::committed || news.what == watch_event::rolled_back;
    if (is_decision || !told_ || told_->what != news.what || told_->text != news.text) {
      reporter_.tell(news);
    }
    told_ = news;
  }

  [[nodiscard]] bool is_failing() const { return told_ && told_->retry.has_value(); }

  [[nodiscard]] std::string reason_to_stop() const {
    return "signal " + std::to_string(wake_.stop_signal()) +
           (is_undecided_ || decided_
                ? ", the new configuration is neither committed nor rolled back"
                : "");
  }

  const watch_options &options_;
  handle &element_;
  state_tracker &state_;
  const console &where_;
  wake_up wake_;
  notifier manager_;
  watch_reporter reporter_;
  backoff backoff_;
  const category_set categories_ = category_set(options_.element.categories);
  std::optional<watch_report> told_;
  bool is_ready_ = false;
  std::optional<decision> decided_;  // not yet carried out
  std::optional<applied_configuration> applied_;
  bool is_undecided_ = false;
};

}  // namespace

int run_watch(const watch_options &options, const console &where) {
  warn_of_environment(where, use_of_service::asked);
  std::string reason;
  state_tracker state(options.state,
                      {.subsys = options.element.subsys, .index = options.element.index},
                      where.err());
  auto element = create_handle(options.element, where.err(), reason);
  if (!element) {
    tell_no_handle_to(where.err(), reason);
    state.failed("start: " + reason);
    return exit_failure;
  }
  warn_of_foreign_owner(*element->c_handle(), where.err());
  watcher(options, *element, state, where).run();
  return exit_success;
}

}  // namespace zotconf
