// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout.hpp"

#include <gtest/gtest.h>

namespace zotconf {
namespace {

published_k k_of(const std::string &config_id, uint64_t sequence = 1) {
  return {.digest = "", .config_id = config_id, .sequence = sequence};
}

void add(rollout &to, const std::string &config_id, standing state, uint64_t times = 1,
         uint64_t sequence = 1, const std::string &reason = "why") {
  for (uint64_t i = 0; i < times; ++i) {
    to.add({.subsys = "AP", .index = std::to_string(i)}, k_of(config_id, sequence),
           {.state = state, .reason = state == standing::in_force ? "" : reason}, {});
  }
}

rollout_verdict verdict(uint64_t elements, uint64_t refused, uint64_t in_force,
                        std::optional<unsigned> max_refused, std::optional<unsigned> min_in_force) {
  rollout found(0);
  add(found, "a", standing::refused, refused);
  add(found, "a", standing::in_force, in_force);
  add(found, "a", standing::waiting, elements - refused - in_force);
  return verdict_of(found.rows(), max_refused, min_in_force);
}

TEST(Rollout, CountsByPublicationAndState) {
  rollout found(0);
  add(found, "a", standing::in_force, 3);
  add(found, "a", standing::silent);
  add(found, "", standing::failing, 2);
  ASSERT_EQ(found.rows().size(), 2U);
  EXPECT_EQ(found.elements(), 6U);
  for (const publication_row &row : found.rows()) {
    const bool is_first = row.config_id == "a";
    EXPECT_EQ(row.elements, is_first ? 4U : 2U);
    EXPECT_EQ(row.count_of(standing::in_force), is_first ? 3U : 0U);
    EXPECT_EQ(row.count_of(standing::silent), is_first ? 1U : 0U);
    EXPECT_EQ(row.count_of(standing::failing), is_first ? 0U : 2U);
  }
}

TEST(Rollout, HasTheHighestSequenceFirst) {
  rollout found(0);
  add(found, "a", standing::in_force, 1, 5);
  add(found, "b", standing::in_force, 1, 9);
  add(found, "a", standing::in_force, 1, 3);
  add(found, "c", standing::in_force, 1, 0);
  add(found, "d", standing::in_force, 1, 7);
  std::string order;
  for (const publication_row &row : found.rows()) {
    order += row.config_id + std::to_string(row.sequence);
  }
  EXPECT_EQ(order, "b9d7a5c0");
}

TEST(Rollout, CountsUndoneCommitsBesideTheState) {
  rollout found(0);
  report_reading reading;
  reading.report.emplace().has_undo = true;
  found.add({.subsys = "AP", .index = "0A"}, k_of("a"), {.state = standing::in_force, .reason = ""},
            reading);
  EXPECT_EQ(found.rows().front().undone, 1U);
  EXPECT_EQ(found.rows().front().count_of(standing::in_force), 1U);
}

TEST(Rollout, HasTheMostFrequentReasonFirst) {
  rollout found(0);
  add(found, "a", standing::refused, 2, 1, "rare");
  add(found, "a", standing::failing, 3, 1, "frequent");
  add(found, "a", standing::silent, 9, 1, "no report");
  const auto reasons = found.reasons();
  ASSERT_EQ(reasons.size(), 2U);
  EXPECT_EQ(reasons[0].reason, "frequent");
  EXPECT_EQ(reasons[0].elements, 3U);
  EXPECT_EQ(reasons[0].state, standing::failing);
  EXPECT_EQ(reasons[1].reason, "rare");
}

TEST(Rollout, CountsReasonsWithoutEndTogether) {
  rollout found(0);
  for (size_t i = 0; i < rollout::most_reasons + 5; ++i) {
    add(found, "a", standing::failing, 1, 1, "reason " + std::to_string(i));
  }
  add(found, "a", standing::failing, 1, 1, "reason 0");
  const auto reasons = found.reasons();
  EXPECT_EQ(reasons.size(), rollout::most_reasons + 1);
  EXPECT_EQ(reasons[0].reason, "(other reasons)");
  EXPECT_EQ(reasons[0].elements, 5U);
  EXPECT_EQ(reasons[1].reason, "reason 0");
  EXPECT_EQ(reasons[1].elements, 2U);
}

TEST(Rollout, LimitsListsButNotTheirTotals) {
  rollout found(0);
  add(found, "a", standing::refused, rollout::most_kept + 7);
  EXPECT_EQ(found.in_state(standing::refused).first.size(), rollout::most_kept);
  EXPECT_EQ(found.in_state(standing::refused).total, rollout::most_kept + 7);
  for (size_t i = 0; i < rollout::most_kept + 7; ++i) {
    found.add_note(note_kind::damaged_k, {.subsys = "AP", .index = "0A"}, "bad");
  }
  EXPECT_EQ(found.notes(note_kind::damaged_k).first.size(), rollout::most_kept);
  EXPECT_EQ(found.notes(note_kind::damaged_k).total, rollout::most_kept + 7);
  EXPECT_EQ(found.notes(note_kind::damaged_report).total, 0U);
}

TEST(RolloutVerdict, IsRefusedAboveTheShareOnly) {
  EXPECT_EQ(verdict(100, 1, 0, 1, std::nullopt).status, exit_success);
  EXPECT_EQ(verdict(100, 2, 0, 1, std::nullopt).status, exit_fleet_refused);
  EXPECT_EQ(verdict(199, 2, 0, 1, std::nullopt).status, exit_fleet_refused);
  EXPECT_EQ(verdict(200, 2, 0, 1, std::nullopt).status, exit_success);
  EXPECT_EQ(verdict(1, 0, 0, 0, std::nullopt).status, exit_success);
  EXPECT_EQ(verdict(1000000, 1, 0, 0, std::nullopt).status, exit_fleet_refused);
  EXPECT_EQ(verdict(1, 1, 0, 100, std::nullopt).status, exit_success);
  EXPECT_EQ(verdict(1, 1, 0, 99, std::nullopt).status, exit_fleet_refused);
}

TEST(RolloutVerdict, IsPendingBelowTheShareOnly) {
  EXPECT_EQ(verdict(100, 0, 95, std::nullopt, 95).status, exit_success);
  EXPECT_EQ(verdict(100, 0, 94, std::nullopt, 95).status, exit_fleet_pending);
  EXPECT_EQ(verdict(1000000, 0, 999999, std::nullopt, 100).status, exit_fleet_pending);
  EXPECT_EQ(verdict(1, 0, 0, std::nullopt, 0).status, exit_success);
  EXPECT_EQ(verdict(1, 0, 0, std::nullopt, 1).status, exit_fleet_pending);
}

TEST(RolloutVerdict, ChecksNothingWithoutALimit) {
  const rollout_verdict found = verdict(10, 10, 0, std::nullopt, std::nullopt);
  EXPECT_EQ(found.status, exit_success);
  EXPECT_STREQ(found.word(), "passed");
  EXPECT_EQ(found.reason, "");
}

TEST(RolloutVerdict, IsRefusedBeforePendingInAnyRow) {
  rollout found(0);
  add(found, "pending", standing::waiting, 10, 9);
  add(found, "refused", standing::refused, 1, 1);
  const rollout_verdict verdict = verdict_of(found.rows(), 10, 90);
  EXPECT_EQ(verdict.status, exit_fleet_refused);
  EXPECT_STREQ(verdict.word(), "refused");
  EXPECT_EQ(verdict.reason, "publication refused: 1 of 1 element refused it, more than 10%");
}

TEST(RolloutVerdict, NamesThePublicationThatIsPending) {
  rollout found(0);
  add(found, "a", standing::in_force, 10, 9);
  add(found, "", standing::waiting, 2, 1);
  const rollout_verdict verdict = verdict_of(found.rows(), 10, 90);
  EXPECT_STREQ(verdict.word(), "pending");
  EXPECT_EQ(verdict.reason,
            "publication without a config ID: 0 of 2 elements have it in force, fewer than 90%");
}

TEST(PercentText, IsRoundedDownButNeverToNone) {
  EXPECT_EQ(percent_text(0, 1), "0.0%");
  EXPECT_EQ(percent_text(1, 1), "100.0%");
  EXPECT_EQ(percent_text(1, 3), "33.3%");
  EXPECT_EQ(percent_text(2, 3), "66.6%");
  EXPECT_EQ(percent_text(999999, 1000000), "99.9%");
  EXPECT_EQ(percent_text(1, 1000000), "<0.1%");
  EXPECT_EQ(percent_text(0, 0), "0.0%");
}

}  // namespace
}  // namespace zotconf
