// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/element_standing.hpp"

#include <algorithm>
#include <string_view>

#include "tools/output/figures.hpp"

namespace zotconf {
namespace {

constexpr std::time_t allowed_advance = 600;

std::string or_unknown(const std::string &reason) {
  return reason.empty() ? "no reason is stated" : reason;
}

element_standing silent_for(std::string reason) {
  return {.state = standing::silent, .reason = std::move(reason)};
}

// Of this form, times are ordered as their texts are.
bool is_iso_time(std::string_view text) {
  constexpr std::string_view form = "0000-00-00T00:00:00Z";
  return std::ranges::equal(text, form, [](char c, char of_form) {
    return of_form == '0' ? c >= '0' && c <= '9' : c == of_form;
  });
}

}  // namespace

const char *name_of(standing state) {
  static constexpr std::array names = {"in_force", "refused", "failing", "waiting", "silent"};
  return names.at(static_cast<size_t>(state));
}

const char *words_of(standing state) {
  return state == standing::in_force ? "in force" : name_of(state);
}

element_standing standing_of(const report_reading &reading, const std::string &digest,
                             std::time_t now, std::chrono::milliseconds silent_after) {
  if (!reading.report) {
    return silent_for(reading.wrong.empty() ? "no report"
                                            : "the report cannot be used: " + reading.wrong);
  }
  const element_report &report = *reading.report;
  // The time of a file may be any number.
  if (report.received < now - std::chrono::floor<std::chrono::seconds>(silent_after).count()) {
    return silent_for("no report since " + iso_time(report.received));
  }
  if (report.in_force == digest) {
    return {.state = standing::in_force, .reason = ""};
  }
  if (report.refused == digest) {
    return {.state = standing::refused, .reason = or_unknown(report.refusal)};
  }
  if (report.relay_refused == digest && report.offered != digest) {
    return {.state = standing::refused, .reason = or_unknown(report.relay_problem.value_or(""))};
  }
  if (const auto &problem = report.problem ? report.problem : report.relay_problem) {
    return {.state = standing::failing, .reason = or_unknown(*problem)};
  }
  return {.state = standing::waiting, .reason = ""};
}

bool is_ahead(const element_report &report, std::time_t now) {
  return is_iso_time(report.time) && report.time > iso_time(now + allowed_advance);
}

bool is_received_ahead(const element_report &report, std::time_t now) {
  return report.received > now + allowed_advance;
}

}  // namespace zotconf
