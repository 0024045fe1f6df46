// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_report.hpp"

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
  relay_event what;
  const char *key;  // in JSON
  std::string_view words;
  colour paint;
};

constexpr std::array events = {
    event_words{relay_event::starting, "starting", "starting", colour::none},
    event_words{relay_event::unchanged, "unchanged", "no update", colour::none},
    event_words{relay_event::updated, "updated", "new publication in service", colour::green},
    event_words{relay_event::repaired, "repaired", "damage repaired", colour::green},
    event_words{relay_event::refused, "refused", "publication refused", colour::red},
    event_words{relay_event::failing, "failing", "update failing", colour::red},
    event_words{relay_event::recovered, "recovered", "recovered", colour::green},
    event_words{relay_event::reports_failing, "reports_failing", "reports failing", colour::red},
    event_words{relay_event::reports_recovered, "reports_recovered", "reports recovered",
                colour::green},
    event_words{relay_event::stopping, "stopping", "stopping", colour::none}};

void print_json(const console &where, const relay_report &news, const char *key) {
  json_document document;
  document.root()
      .set("time", iso_time(std::time(nullptr)))
      .set("event", key)
      .set("text", printable(news.text))
      .set("sequence", news.sequence)
      .set("retry_ms", news.retry);
  where.out() << document.line() << std::flush;
}

const event_words &words_of(relay_event what) {
  return *std::ranges::find(events, what, &event_words::what);
}

std::string line_of(const relay_report &news) {
  std::string line(words_of(news.what).words);
  if (!news.text.empty()) {
    line += ": " + news.text;
  }
  if (news.retry) {
    line += " (retry in " + duration_text(*news.retry) + ")";
  }
  return printable(line);
}

}  // namespace

void relay_reporter::print(const relay_report &news, const std::string &line) const {
  const event_words &words = words_of(news.what);
  if (where_.is_json()) {
    return print_json(where_, news, words.key);
  }
  where_.out() << iso_time(std::time(nullptr)) << ' ' << where_.paint(line, words.paint) << '\n'
               << std::flush;
}

void relay_reporter::tell_round(const relay_report &news) {
  const std::string line = line_of(news);
  manager_.tell_status(line);
  print(news, line);
  told_ = news;
}

void relay_reporter::tell(const relay_report &news) {
  const std::scoped_lock guard(mutex_);
  tell_round(news);
}

void relay_reporter::tell_change(const relay_report &news) {
  const std::scoped_lock guard(mutex_);
  if (!told_ || told_->what != news.what || told_->text != news.text) {
    tell_round(news);
  }
}

void relay_reporter::tell_aside(const relay_report &news) {
  const std::scoped_lock guard(mutex_);
  print(news, line_of(news));
}

}  // namespace zotconf
