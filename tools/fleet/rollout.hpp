// SPDX-License-Identifier: Apache-2.0
// The progress of a fleet: counts of elements by publication and state, and the elements and notes
// that need attention. Lists are limited, counts are not.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/fleet/element_standing.hpp"
#include "tools/fleet/published_k.hpp"
#include "tools/model/names.hpp"
#include "tools/output/exit_status.hpp"

namespace zotconf {

// Elements whose K has the same config ID.
struct publication_row {
  std::string config_id;  // empty: not stated
  uint64_t sequence = 0;  // the highest; 0: not stated
  uint64_t elements = 0;
  std::array<uint64_t, all_standings.size()> counts{};
  uint64_t undone = 0;  // elements that undid an interrupted commit

  [[nodiscard]] uint64_t count_of(standing state) const {
    return counts.at(static_cast<size_t>(state));
  }
};

struct reason_count {
  standing state = standing::refused;
  std::string reason;
  uint64_t elements = 0;
};

struct listed_element {
  element who;
  std::string config_id;
  std::string reason;
  std::time_t received = 0;  // 0: no usable report
};

enum class note_kind { damaged_report, other_element, clock_ahead, unknown_element, damaged_k };

inline constexpr std::array all_note_kinds = {note_kind::damaged_report, note_kind::other_element,
                                              note_kind::clock_ahead, note_kind::unknown_element,
                                              note_kind::damaged_k};

// Returns "damaged_report", as in JSON.
const char *name_of(note_kind kind);

struct rollout_note {
  note_kind kind = note_kind::damaged_report;
  element who;
  std::string text;
};

// The elements in one state.
struct standing_list {
  uint64_t total = 0;
  std::vector<listed_element> first;
};

struct note_list {
  uint64_t total = 0;
  std::vector<rollout_note> first;
};

class rollout {
 public:
  // This many elements of each state and notes of each kind are kept.
  static constexpr size_t most_kept = 1000;
  // This many different reasons are counted separately.
  static constexpr size_t most_reasons = 10000;

  explicit rollout(std::time_t when) : when_(when) {}

  void add(const element &who, const published_k &k, const element_standing &found,
           const report_reading &reading);
  void add_note(note_kind kind, const element &who, std::string text);

  [[nodiscard]] std::time_t when() const { return when_; }
  [[nodiscard]] uint64_t elements() const { return elements_; }
  // The highest sequence first.
  [[nodiscard]] std::vector<publication_row> rows() const;
  // The most frequent first.
  [[nodiscard]] std::vector<reason_count> reasons() const;
  [[nodiscard]] const standing_list &in_state(standing state) const {
    return lists_.at(static_cast<size_t>(state));
  }
  [[nodiscard]] const note_list &notes(note_kind kind) const {
    return notes_.at(static_cast<size_t>(kind));
  }

 private:
  void add_reason(standing state, const std::string &reason);

  std::time_t when_;
  uint64_t elements_ = 0;
  std::map<std::string, publication_row> rows_;
  std::map<std::pair<standing, std::string>, uint64_t> reasons_;
  std::array<standing_list, all_standings.size()> lists_;
  std::array<note_list, all_note_kinds.size()> notes_;
};

// What a pipeline does next.
struct rollout_verdict {
  exit_status status = exit_success;
  std::string reason;  // empty if no limit is exceeded

  // Returns "refused", "pending" or "passed".
  [[nodiscard]] const char *word() const;
};

rollout_verdict verdict_of(const std::vector<publication_row> &rows,
                           std::optional<unsigned> max_refused,
                           std::optional<unsigned> min_in_force);

// A share in tenths of a percent, rounded down. 0 of 0 is 0.
uint64_t tenths_of_percent(uint64_t count, uint64_t total);
// Returns "12.5%". Only all is "100.0%", and only none is "0.0%".
std::string percent_text(uint64_t count, uint64_t total);

// The config ID as a user reads it.
std::string config_id_text(const std::string &config_id);

}  // namespace zotconf
