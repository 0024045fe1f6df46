// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout.hpp"

#include <algorithm>
#include <functional>

#include "tools/output/figures.hpp"
#include "tools/output/plain_text.hpp"

namespace zotconf {
namespace {

constexpr const char *other_reasons = "(other reasons)";

std::string elements_of(uint64_t count, const publication_row &row) {
  const std::string which =
      row.config_id.empty() ? "without a config ID" : config_id_text(row.config_id);
  return "publication " + which + ": " + std::to_string(count) + " of " +
         counted(row.elements, "element", "elements");
}

bool has_too_many_refused(const publication_row &row, unsigned most) {
  return row.count_of(standing::refused) * 100 > row.elements * most;
}

bool has_too_few_in_force(const publication_row &row, unsigned least) {
  return row.count_of(standing::in_force) * 100 < row.elements * least;
}

}  // namespace

const char *name_of(note_kind kind) {
  static constexpr std::array names = {"damaged_report", "other_element", "clock_ahead",
                                       "unknown_element", "damaged_k"};
  return names.at(static_cast<size_t>(kind));
}

void rollout::add(const element &who, const published_k &k, const element_standing &found,
                  const report_reading &reading) {
  ++elements_;
  publication_row &row = rows_.try_emplace(k.config_id).first->second;
  row.config_id = k.config_id;
  row.sequence = std::max(row.sequence, k.sequence);
  ++row.elements;
  ++row.counts.at(static_cast<size_t>(found.state));
  row.undone += reading.report && reading.report->has_undo ? 1 : 0;
  if (found.state == standing::refused || found.state == standing::failing) {
    add_reason(found.state, found.reason);
  }
  standing_list &list = lists_.at(static_cast<size_t>(found.state));
  ++list.total;
  if (!found.reason.empty() && list.first.size() < most_kept) {
    list.first.push_back({.who = who,
                          .config_id = k.config_id,
                          .reason = found.reason,
                          .received = reading.report ? reading.report->received : 0});
  }
}

void rollout::add_reason(standing state, const std::string &reason) {
  const bool has_room = reasons_.size() < most_reasons || reasons_.contains({state, reason});
  ++reasons_[{state, has_room ? reason : other_reasons}];
}

void rollout::add_note(note_kind kind, const element &who, std::string text) {
  note_list &list = notes_.at(static_cast<size_t>(kind));
  ++list.total;
  if (list.first.size() < most_kept) {
    list.first.push_back({.kind = kind, .who = who, .text = std::move(text)});
  }
}

std::vector<publication_row> rollout::rows() const {
  std::vector<publication_row> sorted;
  sorted.reserve(rows_.size());
  for (const auto &[config_id, row] : rows_) {
    sorted.push_back(row);
  }
  std::ranges::stable_sort(sorted, std::greater(), &publication_row::sequence);
  return sorted;
}

std::vector<reason_count> rollout::reasons() const {
  std::vector<reason_count> sorted;
  sorted.reserve(reasons_.size());
  for (const auto &[what, elements] : reasons_) {
    sorted.push_back({.state = what.first, .reason = what.second, .elements = elements});
  }
  std::ranges::stable_sort(sorted, std::greater(), &reason_count::elements);
  return sorted;
}

const char *rollout_verdict::word() const {
  return status == exit_fleet_refused   ? "refused"
         : status == exit_fleet_pending ? "pending"
                                        : "passed";
}

rollout_verdict verdict_of(const std::vector<publication_row> &rows,
                           std::optional<unsigned> max_refused,
                           std::optional<unsigned> min_in_force) {
  for (const publication_row &row : rows) {
    if (max_refused && has_too_many_refused(row, *max_refused)) {
      return {.status = exit_fleet_refused,
              .reason = elements_of(row.count_of(standing::refused), row) +
                        " refused it, more than " + std::to_string(*max_refused) + "%"};
    }
  }
  for (const publication_row &row : rows) {
    if (min_in_force && has_too_few_in_force(row, *min_in_force)) {
      return {.status = exit_fleet_pending,
              .reason = elements_of(row.count_of(standing::in_force), row) +
                        " have it in force, fewer than " + std::to_string(*min_in_force) + "%"};
    }
  }
  return {};
}

uint64_t tenths_of_percent(uint64_t count, uint64_t total) {
  return total == 0 ? 0 : count * 1000 / total;
}

std::string percent_text(uint64_t count, uint64_t total) {
  const uint64_t tenths = tenths_of_percent(count, total);
  if (tenths == 0 && count > 0) {
    return "<0.1%";
  }
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + "%";
}

std::string config_id_text(const std::string &config_id) {
  return config_id.empty() ? "not stated" : printable(config_id);
}

}  // namespace zotconf
