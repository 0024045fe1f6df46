// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/relay_json.hpp"

#include <algorithm>
#include <optional>
#include <vector>

#include "tools/output/figures.hpp"
#include "tools/output/version.hpp"
#include "tools/relay/relay_advice.hpp"
#include "tools/service/status_query.hpp"

namespace zotconf {
namespace {

constexpr size_t most_refused = 20;

std::optional<std::string> time_text(std::time_t when) {
  return when != 0 ? stated(iso_time(when)) : std::nullopt;
}

std::optional<std::string> time_text(const std::optional<std::time_t> &when) {
  return time_text(when.value_or(0));
}

// 0 stands for a number that is not known.
template <class Number>
std::optional<Number> known(Number value) {
  return value != 0 ? std::optional(value) : std::nullopt;
}

std::optional<int64_t> age(std::time_t when, std::time_t now) {
  return when != 0 ? std::optional<int64_t>(age_of(when, now).count()) : std::nullopt;
}

void describe_element(json_node into, const element &who) {
  into.set("subsys", printable(who.subsys)).set("index", printable(who.index));
}

void describe_publication(json_node into, const relay_state &state, std::time_t now) {
  if (!state.has_publication) {
    into.set("publication", std::optional<std::string>());
    return;
  }
  into.object("publication")
      .set("digest", printable(state.k_digest))
      .set("sequence", known(state.sequence))
      .set("config_id", stated(printable(state.config_id)))
      .set("signer", stated(printable(state.signer)))
      .set("signed_at", time_text(state.signed_at))
      .set("files", state.files)
      .set("bytes", state.bytes)
      .set("since", time_text(state.last_news))
      .set("age_seconds", age(state.last_news, now));
}

void describe_contact(json_node into, const relay_state &state, std::time_t now) {
  into.set("last_attempt", time_text(state.last_attempt))
      .set("last_contact", time_text(state.last_contact))
      .set("age_seconds", age(state.last_contact, now))
      .set("max_age_seconds", static_cast<int64_t>(state.max_age.count()))
      .set("stale", is_stale(state, now))
      .set("problem", stated(printable(state.problem)))
      .set("kind", name_of(problem_of(state)))
      .set("refused", state.is_refused && !state.problem.empty())
      .set("problem_since", state.problem.empty() ? std::nullopt : time_text(state.problem_since))
      .set("next_attempt", time_text(state.next_attempt));
}

void describe_report(json_node into, const std::optional<report_status> &report) {
  if (!report) {
    into.set("report", std::optional<std::string>());
    return;
  }
  into.object("report")
      .set("url", printable(report->url))
      .set("last_sent", time_text(report->last_sent))
      .set("problem", stated(printable(report->problem)))
      .set("pending", report->is_pending);
}

void describe_notes(json_node list, const relay_state &state, std::time_t now) {
  for (const relay_note &note : notes_of(state, now)) {
    list.append()
        .set("text", printable(note.text))
        .set("advice", printable(note.advice))
        .set("since", time_text(note.since));
  }
}

void describe_requests(json_node into, const relay_state &state, const element_log &log) {
  const element_fetches sent = log.fetches_of(state.who).value_or(element_fetches{});
  into.set("state", name_of(log.state_of(state.who, state.k_digest)))
      .set("checksum_sent", time_text(sent.checksum_sent))
      .set("k_sent", time_text(sent.k_sent))
      .set("k_checksum", stated(printable(sent.k_checksum)))
      .set("k_config_id", stated(printable(sent.k_config_id)))
      .set("client", stated(printable(sent.client)));
  std::vector<refused_element> refused = log.refused(0);
  refused.resize(std::min(refused.size(), most_refused));
  json_node list = into.array("refused");
  for (const refused_element &each : refused) {
    json_node item = list.append();
    describe_element(item, each.who);
    item.set("asked", time_text(each.asked)).set("client", printable(each.client));
  }
}

}  // namespace

void describe_relay(json_node into, const relay_state &state, const element_log &log,
                    std::time_t now) {
  into.set("version", version)
      .set("state", name_of(health_of(state, now)))
      .set("upstream", printable(state.upstream));
  describe_element(into.object("element"), state.who);
  into.set("must_be_signed", state.must_be_signed).set("started", time_text(state.started));
  describe_notes(into.array("notes"), state, now);
  describe_publication(into, state, now);
  describe_contact(into.object("contact"), state, now);
  into.object("counters")
      .set("rounds", state.rounds)
      .set("failures", state.failures)
      .set("updates", state.updates)
      .set("bytes_received", state.bytes_received)
      .set("bytes_saved", state.bytes_saved);
  describe_requests(into.object("requests"), state, log);
  describe_report(into, state.report);
}

}  // namespace zotconf
