// SPDX-License-Identifier: Apache-2.0
#include "tools/element/watch_report.hpp"

#include <algorithm>
#include <array>
#include <ctime>
#include <ostream>
#include <string_view>

#include "tools/output/duration.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/json.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

struct event_words {
  watch_event what;
  const char *key;  // in JSON
  std::string_view words;
  colour paint;
};

constexpr std::array events = {
    event_words{watch_event::starting, "starting", "starting", colour::none},
    event_words{watch_event::applied_cached, "applied_cached",
                "configuration in force passed to CMD", colour::none},
    event_words{watch_event::committed, "committed", "new configuration applied and committed",
                colour::green},
    event_words{watch_event::rolled_back, "rolled_back", "rolled back", colour::yellow},
    event_words{watch_event::no_update, "no_update", "no update", colour::none},
    event_words{watch_event::same_as_rolled_back, "same_as_rolled_back",
                "same as rolled back (to accept it again: zotconf forget)", colour::yellow},
    event_words{watch_event::service_failing, "service_failing", "service failing", colour::red},
    event_words{watch_event::apply_failing, "apply_failing", "apply failing", colour::red},
    event_words{watch_event::verdict_failing, "verdict_failing", "commit or rollback failing",
                colour::red},
    event_words{watch_event::recovered, "recovered", "recovered", colour::green},
    event_words{watch_event::stopping, "stopping", "stopping", colour::none}};

}  // namespace

void watch_reporter::tell(const watch_report &news) const {
  const auto &words = *std::ranges::find(events, news.what, &event_words::what);
  std::string line(words.words);
  if (news.config_id) {
    line += " " + *news.config_id;
  }
  if (!news.text.empty()) {
    line += ": " + news.text;
  }
  if (!news.hint.empty()) {
    line += ": " + news.hint;
  }
  if (news.retry) {
    line += " (retry in " + duration_text(*news.retry) + ")";
  }
  line = printable(line);
  if (where_.is_json()) {
    print_json(news, words.key);
  } else {
    where_.out() << iso_time(std::time(nullptr)) << ' ' << where_.paint(line, words.paint) << '\n';
  }
  where_.out() << std::flush;
  manager_.tell_status(line);
}

void watch_reporter::print_json(const watch_report &news, const char *key) const {
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

}  // namespace zotconf
