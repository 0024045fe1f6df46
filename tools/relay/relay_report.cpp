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

}  // namespace

void relay_reporter::print(const relay_report &news) const {
  const auto &words = *std::ranges::find(events, news.what, &event_words::what);
  std::string line(words.words);
  if (!news.text.empty()) {
    line += ": " + news.text;
  }
  if (news.retry) {
    line += " (retry in " + duration_text(*news.retry) + ")";
  }
  line = printable(line);
  manager_.tell_status(line);
  if (where_.is_json()) {
    return print_json(where_, news, words.key);
  }
  where_.out() << iso_time(std::time(nullptr)) << ' ' << where_.paint(line, words.paint) << '\n'
               << std::flush;
}

void relay_reporter::tell(const relay_report &news) {
  print(news);
  told_ = news;
}

void relay_reporter::tell_change(const relay_report &news) {
  if (!told_ || told_->what != news.what || told_->text != news.text) {
    tell(news);
  }
}

}  // namespace zotconf
