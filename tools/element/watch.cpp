// SPDX-License-Identifier: Apache-2.0
#include "tools/element/watch.hpp"

#include <algorithm>
#include <array>
#include <csignal>
#include <ctime>
#include <ostream>
#include <thread>
#include <utility>

#include "tools/element/apply.hpp"
#include "tools/element/backoff.hpp"
#include "tools/element/notify.hpp"
#include "tools/element/running_command.hpp"
#include "tools/element/wake_up.hpp"
#include "tools/output/duration.hpp"
#include "tools/output/exit_status.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

// How long an interrupted command may take to end by itself.
constexpr milliseconds grace = 500ms;

enum class event {
  starting,
  applied_cached,
  committed,
  rolled_back,
  no_update,
  same_as_rolled_back,
  service_failing,
  apply_failing,
  verdict_failing,
  recovered,
  stopping
};

struct event_words {
  event what;
  const char *key;  // in JSON
  std::string_view words;
  colour paint;
};

constexpr std::array events = {
    event_words{event::starting, "starting", "starting", colour::none},
    event_words{event::applied_cached, "applied_cached", "configuration in force handed to CMD",
                colour::none},
    event_words{event::committed, "committed", "new configuration applied and committed",
                colour::green},
    event_words{event::rolled_back, "rolled_back", "rolled back", colour::yellow},
    event_words{event::no_update, "no_update", "no update", colour::none},
    event_words{event::same_as_rolled_back, "same_as_rolled_back", "same as rolled back",
                colour::yellow},
    event_words{event::service_failing, "service_failing", "service failing", colour::red},
    event_words{event::apply_failing, "apply_failing", "apply failing", colour::red},
    event_words{event::verdict_failing, "verdict_failing", "commit or roll-back failing",
                colour::red},
    event_words{event::recovered, "recovered", "recovered", colour::green},
    event_words{event::stopping, "stopping", "stopping", colour::none}};

// One line of output.
struct report {
  event what;
  std::string text = {};
  std::optional<int> status = {};  // of the library
  std::optional<std::string> config_id = {};
  std::optional<milliseconds> retry = {};
};

std::string size_of(const entries &list) {
  return counted(static_cast<uint64_t>(std::ranges::distance(list)), "entry", "entries");
}

// Prints what happens, for people or as JSON, and tells the service manager.
class reporter {
 public:
  reporter(const console &where, const notifier &manager) : where_(where), manager_(manager) {}

  void tell(const report &news) const {
    const auto &words = *std::ranges::find(events, news.what, &event_words::what);
    std::string line(words.words);
    if (news.config_id) {
      line += " " + *news.config_id;
    }
    if (!news.text.empty()) {
      line += ": " + news.text;
    }
    if (news.retry) {
      line += " (retry in " + duration_text(*news.retry) + ")";
    }
    line = printable(line);
    if (where_.is_json()) {
      print_json(news, words.key);
    } else {
      where_.out() << iso_time(std::time(nullptr)) << ' ' << where_.paint(line, words.paint)
                   << '\n';
    }
    where_.out() << std::flush;
    manager_.tell_status(line);
  }

 private:
  void print_json(const report &news, const char *key) const {
    json_document document;
    document.root()
        .set("time", iso_time(std::time(nullptr)))
        .set("event", key)
        .set("text", news.text)
        .set("status", news.status)
        .set("config_id", news.config_id)
        .set("retry_ms", news.retry);
    where_.out() << document.line();
  }

  const console &where_;
  const notifier &manager_;
};

// What the command has said of a configuration.
struct decision {
  std::string k;  // its bytes
  bool accepted = false;
  report news;  // once it is done
};

class watcher {
 public:
  watcher(const watch_options &options, handle &element, const console &where)
      : options_(options),
        element_(element),
        reporter_(where, manager_),
        backoff_(options.backoff_min, options.backoff_max, std::random_device()()) {}

  void run() {
    reporter_.tell({.what = event::starting,
                    .text = options_.element.subsys + " " + options_.element.index + ", every " +
                            duration_text(options_.every)});
    if (options_.apply_cached_at_start) {
      apply_cached();
    }
    while (!is_stopped()) {
      rest(step());
    }
    manager_.stopping();
    reporter_.tell({.what = event::stopping, .text = reason_to_stop()});
  }

 private:
  using clock = wake_up::clock;

  [[nodiscard]] bool is_stopped() const { return wake_.stop_signal() != 0; }

  // Waits for something to happen, and shows the service manager a sign of life meanwhile.
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

  // One get and what follows from it. Returns the pause before the next one.
  milliseconds step() {
    manager_.show_life(clock::now());
    const entries list =
        element_.get(category_set(options_.element.categories), change::differences);
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
                      {.what = event::same_as_rolled_back, .status = result.code()});
    }
    if (result.is_error()) {
      return fail({.what = event::service_failing, .text = result.text(), .status = result.code()});
    }
    return element_.is_new() ? take(list) : conclude(ZOT_SLOT_CURRENT, {.what = event::no_update});
  }

  // The bytes of a K; empty when there is none.
  [[nodiscard]] std::string bytes_of(uint32_t slot) const {
    const zot_k *const k = zot_priv_get_k(element_.c_handle(), slot);
    return k != nullptr && k->data != nullptr ? std::string(k->data, k->data_len) : "";
  }

  // A get that brings nothing new. It may have ended what failed before, which is told then. Or
  // another process has decided otherwise: then the command has applied what is not in force.
  milliseconds conclude(uint32_t slot, const report &news) {
    const auto decided = std::exchange(decided_, std::nullopt);
    const bool is_so =
        decided && decided->accepted == (slot == ZOT_SLOT_CURRENT) && decided->k == bytes_of(slot);
    if (decided && decided->accepted && !is_so) {
      apply_cached();
    }
    return settle(is_so ? decided->news : news);
  }

  // Hands a new configuration to the command and does what that one decides. What it has decided
  // before is still to be done.
  milliseconds take(const entries &list) {
    const std::string k = bytes_of(ZOT_SLOT_TMP);
    if (decided_ && decided_->k == k) {
      return answer();
    }
    decided_.reset();
    const auto from = element_.metadata_of(generation::fetched);
    std::optional<command_end> end;
    try {
      end = apply(list, from);
    } catch (const std::exception &error) {
      return fail({.what = event::apply_failing, .text = error.what()});
    }
    if (!end) {
      is_undecided_ = true;
      return 0ms;
    }
    report news{.what = end->accepted ? event::committed : event::rolled_back,
                .text = end->accepted ? size_of(list) : "apply: " + end->text};
    if (from && !from->config_id.empty()) {
      news.config_id = from->config_id;
    }
    decided_ = decision{.k = k, .accepted = end->accepted, .news = news};
    return answer();
  }

  // Hands what is in force to the command, which has no say.
  void apply_cached() {
    const entries list = element_.get(category_set(options_.element.categories), change::cached);
    report news{.what = event::applied_cached, .text = list.result().text()};
    if (list.result().is_error()) {
      news.status = list.result().code();
    } else if (!has_entry_in_force(list)) {
      // The command would take what was in force once for deleted.
      news.text = "no entry is in force, CMD was not run";
      news.status = ZOT_ERR_NO_CACHE;
    } else {
      try {
        const auto end = apply(list, element_.metadata_of(generation::current));
        news.text = size_of(list) + ", " + (end ? end->text : "interrupted");
      } catch (const std::exception &error) {
        news.text = error.what();
      }
    }
    reporter_.tell(news);
  }

  // How the command ended; nothing when a signal to stop came before.
  std::optional<command_end> apply(const entries &list, const std::optional<metadata> &from) {
    const temporary_folder scratch;
    const fs::path folder = scratch.path() / "files";
    const fs::path change_list = scratch.path() / "changes.json";
    write_entries(folder, list);
    write_change_list(change_list, list, from);
    running_command command(options_.element.command, folder, change_list);
    while (!is_stopped()) {
      if (auto end = command.poll()) {
        return end;
      }
      wait_until(clock::time_point::max());
    }
    if (auto end = command.poll()) {
      return end;
    }
    interrupt(command);
    return std::nullopt;
  }

  // What ignores the request to end, the command or what it started, is ended.
  static void interrupt(running_command &command) {
    command.send(SIGTERM);
    const clock::time_point end = clock::now() + grace;
    while (!command.poll() && clock::now() < end) {
      std::this_thread::sleep_for(5ms);
    }
    command.send(SIGKILL);
  }

  // Commits or rolls back. After a failure the next get ends it, or offers the configuration again:
  // another process may have taken its files from the scratch area.
  milliseconds answer() {
    const status done = decided_->accepted ? element_.commit() : element_.roll_back();
    if (done.is_error()) {
      return fail({.what = event::verdict_failing, .text = done.text(), .status = done.code()});
    }
    return settle(std::exchange(decided_, std::nullopt)->news);
  }

  // All went well: the next get is due at its usual time.
  milliseconds settle(const report &news) {
    if (is_failing()) {
      reporter_.tell({.what = event::recovered});
    }
    backoff_.reset();
    tell_change(news);
    return options_.every;
  }

  milliseconds fail(report news) {
    const milliseconds pause = backoff_.next();
    news.retry = pause;
    tell_change(news);
    return pause;
  }

  // The same outcome with the same words is told once, but for a commit and a roll-back.
  void tell_change(const report &news) {
    const bool is_decision = news.what == event::committed || news.what == event::rolled_back;
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
  wake_up wake_;
  notifier manager_;
  reporter reporter_;
  backoff backoff_;
  std::optional<report> told_;
  bool is_ready_ = false;
  std::optional<decision> decided_;  // not yet done
  bool is_undecided_ = false;
};

}  // namespace

int run_watch(const watch_options &options, const console &where) {
  std::string reason;
  auto element = create_handle(options.element, where.err(), reason);
  if (!element) {
    where.err() << "zotconf: no handle: " << printable(reason) << '\n';
    return exit_failure;
  }
  watcher(options, *element, where).run();
  return exit_success;
}

}  // namespace zotconf
