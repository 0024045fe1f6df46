// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_page.hpp"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tools/output/console.hpp"
#include "tools/output/duration.hpp"
#include "tools/output/figures.hpp"
#include "tools/output/version.hpp"
#include "tools/relay/relay_advice.hpp"
#include "tools/relay/relay_json.hpp"
#include "tools/service/page_answer.hpp"
#include "tools/service/page_html.hpp"

namespace zotconf {
namespace {

constexpr size_t most_listed = 5;

// An option is not divided at the end of a line.
std::string with_options(std::string_view text) {
  constexpr std::string_view letters = "-abcdefghijklmnopqrstuvwxyz";
  std::string html;
  for (size_t at = text.find("--"); at != std::string_view::npos; at = text.find("--")) {
    const size_t end = std::min(text.find_first_not_of(letters, at), text.size());
    html += escaped(text.substr(0, at)) + "<code>" + escaped(text.substr(at, end - at)) + "</code>";
    text.remove_prefix(end);
  }
  return html + escaped(text);
}

struct fact {
  std::string name;
  std::string value;
};

std::string list_of(const char *title, const std::vector<fact> &facts) {
  std::string html = "<section><h2>" + escaped(title) + "</h2>\n<dl>\n";
  for (const fact &each : facts) {
    html += "<dt>" + escaped(each.name) + "</dt><dd>" + escaped(each.value) + "</dd>\n";
  }
  return html + "</dl></section>\n";
}

std::string or_none(const std::string &text, const char *none) {
  return text.empty() ? none : text;
}

std::string past(std::time_t when, std::time_t now, const char *none) {
  return when == 0 ? none : duration_text(age_of(when, now)) + " ago (" + iso_time(when) + ")";
}

std::string past(const std::optional<std::time_t> &when, std::time_t now, const char *none) {
  return past(when.value_or(0), now, none);
}

struct health_mark {
  const char *text;
  const char *look;  // class of the style
};

health_mark mark_of(relay_health health) {
  switch (health) {
    case relay_health::good:
      return {.text = "in service", .look = "good"};
    case relay_health::problem:
      return {.text = "in service, with a problem", .look = "warn"};
    case relay_health::nothing:
      return {.text = "nothing in service", .look = "bad"};
  }
  return {.text = "", .look = ""};
}

std::string head_of(const relay_state &state, std::time_t now) {
  const health_mark mark = mark_of(health_of(state, now));
  return "<title>" + std::string(mark.text) +
         " - zotconf relay</title>\n</head>\n<body>\n"
         "<header><div><h1>zotconf relay</h1><p class=\"mark " +
         mark.look + "\" role=\"status\">" + mark.text + "</p><p class=\"quiet\">" +
         escaped(state.who.subsys + " " + state.who.index) + ", at " + iso_time(now) +
         "</p></div></header>\n<main>\n";
}

std::string note_html(const relay_note &note) {
  const std::string since = note.since == 0 ? "" : "Since " + iso_time(note.since) + ".";
  return "<div class=\"note\"><p class=\"reason\">" + escaped(note.text) + "</p><p>" +
         with_options(note.advice) + "</p><p class=\"quiet\">" + since + "</p></div>\n";
}

std::string publication_html(const relay_state &state, std::time_t now) {
  if (!state.has_publication) {
    return "";
  }
  const std::string size = counted(state.files, "file", "files") + ", " + human_bytes(state.bytes);
  return list_of("Publication",
                 {{"Config ID", or_none(state.config_id, "not stated")},
                  {"In service since", past(state.last_news, now, "not known")},
                  {"Content", size},
                  {"Signed by", or_none(state.signer, "not signed")},
                  {"Signed", past(state.signed_at, now, "not known")},
                  {"Sequence", state.sequence == 0 ? "not stated" : std::to_string(state.sequence)},
                  {"SHA-256 of K", state.k_digest}});
}

std::string server_html(const relay_state &state, std::time_t now) {
  return list_of("Server",
                 {{"Address", state.upstream},
                  {"Last contact", past(state.last_contact, now, "none since the start")},
                  {"Last attempt", past(state.last_attempt, now, "none since the start")},
                  {"Next attempt", state.next_attempt == 0 ? "now" : iso_time(state.next_attempt)},
                  {"Signature", state.must_be_signed ? "required" : "not required"}});
}

const char *fetched_text(fetch_state state) {
  switch (state) {
    case fetch_state::never:
      return "no request yet";
    case fetch_state::asked:
      return "requested the checksum, but no K";
    case fetch_state::older:
      return "fetched an older K";
    case fetch_state::up_to_date:
      return "fetched the K in service";
  }
  return "";
}

std::string requests_html(const relay_state &state, const element_log &log, std::time_t now) {
  const element_fetches sent = log.fetches_of(state.who).value_or(element_fetches{});
  std::vector<fact> facts = {{"State", fetched_text(log.state_of(state.who, state.k_digest))},
                             {"Checksum sent", past(sent.checksum_sent, now, "never")},
                             {"K sent", past(sent.k_sent, now, "never")}};
  if (!sent.client.empty()) {
    facts.push_back({"Last client", sent.client});
  }
  const std::vector<refused_element> refused = log.refused(0);
  for (size_t i = 0; i < std::min(refused.size(), most_listed); ++i) {
    const refused_element &each = refused.at(i);
    facts.push_back({"Not found", each.who.subsys + " " + each.who.index + ", requested by " +
                                      each.client + " " + past(each.asked, now, "")});
  }
  return list_of("Processes of this element", facts);
}

std::string counters_html(const relay_state &state, std::time_t now) {
  return list_of("Since the start", {{"Started", past(state.started, now, "not known")},
                                     {"Rounds", std::to_string(state.rounds)},
                                     {"Failed rounds", std::to_string(state.failures)},
                                     {"Updates", std::to_string(state.updates)},
                                     {"Received", human_bytes(state.bytes_received)},
                                     {"Not fetched again", human_bytes(state.bytes_saved)},
                                     {"Version", version}});
}

std::string report_html(const relay_state &state, std::time_t now) {
  if (!state.report) {
    return "";
  }
  const report_status &report = *state.report;
  const std::string progress = !report.problem.empty()
                                   ? "failing: " + report.problem
                                   : (report.is_pending ? "one is waiting to be sent" : "sent");
  return list_of("Reports", {{"Sent to", report.url},
                             {"Last sent", past(report.last_sent, now, "none since the start")},
                             {"State", progress}});
}

std::string page_text(const relay_state &state, const element_log &log, std::time_t now) {
  std::string html = std::string(relay_html) + head_of(state, now);
  for (const relay_note &note : notes_of(state, now)) {
    html += note_html(note);
  }
  html += publication_html(state, now) + server_html(state, now) + requests_html(state, log, now) +
          report_html(state, now) + counters_html(state, now);
  return html +
         "<footer class=\"quiet\">Times are in UTC. The same data is at "
         "<a href=\"status.json\">status.json</a>.</footer>\n</main>\n</body>\n</html>\n";
}

// Allows only the page's own style.
std::string page_policy() {
  return "default-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
         "img-src data:; style-src " +
         source_hash(relay_html, "style");
}

}  // namespace

bool relay_page::is_asked(const http_request &request) {
  return (request.method == "GET" || request.method == "HEAD") &&
         (request.path == "/" || request.path == "/status.json");
}

std::optional<http_answer> relay_page::answer(const http_request &request) const {
  if (!is_asked(request)) {
    return std::nullopt;
  }
  const relay_state state = board_.read();
  const std::time_t now = std::time(nullptr);
  if (request.path == "/") {
    static const std::string policy = page_policy();
    return page_answer(200, page_text(state, elements_, now), "text/html; charset=utf-8", policy);
  }
  json_document document;
  describe_relay(document.root(), state, elements_, now);
  return json_answer(200, document.line());
}

}  // namespace zotconf
