// SPDX-License-Identifier: Apache-2.0
#include "tools/fleet/rollout_json.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/support/json_value.hpp"

namespace zotconf {
namespace {

zot::test::json_value told(const rollout &found, const rollout_verdict &verdict = {}) {
  std::ostringstream out;
  std::ostringstream err;
  write_rollout_json(console(out, err, {.json = true}), found, verdict);
  return zot::test::json_value(out.str());
}

void add(rollout &to, const std::string &index, standing state, const std::string &reason,
         const std::string &config_id = "id", uint64_t sequence = 7) {
  to.add({.subsys = "AP", .index = index},
         {.digest = "", .config_id = config_id, .sequence = sequence},
         {.state = state, .reason = reason}, {});
}

TEST(RolloutJson, StatesEachPublication) {
  rollout found(1700000000);
  add(found, "0A", standing::in_force, "");
  add(found, "0B", standing::refused, "why");
  add(found, "0C", standing::in_force, "");
  add(found, "0D", standing::waiting, "", "", 0);
  const auto json = told(found);
  EXPECT_EQ(json["result"].text(), "passed");
  EXPECT_TRUE(json["reason"].is_null());
  EXPECT_EQ(json["time"].text(), "2023-11-14T22:13:20Z");
  EXPECT_EQ(json["elements"].number(), 4);
  EXPECT_EQ(json["publications_total"].number(), 2);
  const auto first = json["publications"][0];
  EXPECT_EQ(first["config_id"].text(), "id");
  EXPECT_EQ(first["sequence"].number(), 7);
  EXPECT_EQ(first["elements"].number(), 3);
  EXPECT_EQ(first["in_force"]["count"].number(), 2);
  EXPECT_EQ(first["in_force"]["percent"].number(), 66.6);
  EXPECT_EQ(first["refused"]["count"].number(), 1);
  EXPECT_EQ(first["undone"]["percent"].number(), 0);
  EXPECT_TRUE(json["publications"][1]["config_id"].is_null());
  EXPECT_TRUE(json["publications"][1]["sequence"].is_null());
}

TEST(RolloutJson, ListsReasonsElementsAndNotes) {
  rollout found(1700000000);
  add(found, "0A", standing::refused, "why");
  add(found, "0B", standing::failing, "because");
  add(found, "0C", standing::silent, "no report", "");
  found.add_note(note_kind::damaged_report, {.subsys = "AP", .index = ""}, "no folder");
  const auto json = told(found, {.status = exit_fleet_refused, .reason = "too many"});
  EXPECT_EQ(json["result"].text(), "refused");
  EXPECT_EQ(json["reason"].text(), "too many");
  EXPECT_EQ(json["reasons_total"].number(), 2);
  EXPECT_EQ(json["reasons"][0]["elements"].number(), 1);
  EXPECT_EQ(json["reasons"][0]["state"].text(), "refused");
  EXPECT_EQ(json["reasons"][0]["reason"].text(), "why");
  EXPECT_EQ(json["refused"][0]["subsys"].text(), "AP");
  EXPECT_EQ(json["refused"][0]["index"].text(), "0A");
  EXPECT_EQ(json["refused"][0]["config_id"].text(), "id");
  EXPECT_EQ(json["failing"][0]["reason"].text(), "because");
  EXPECT_TRUE(json["silent"][0]["config_id"].is_null());
  EXPECT_TRUE(json["silent"][0]["received"].is_null());
  EXPECT_EQ(json["notes"][0]["kind"].text(), "damaged_report");
  EXPECT_TRUE(json["notes"][0]["index"].is_null());
  EXPECT_EQ(json["notes"][0]["text"].text(), "no folder");
}

TEST(RolloutJson, StatesTotalsBesideLimitedLists) {
  rollout found(1700000000);
  for (size_t i = 0; i < 1500; ++i) {
    const std::string number = std::to_string(i);
    add(found, number, standing::refused, "reason " + number, "id" + number);
    found.add_note(note_kind::unknown_element, {.subsys = "AP", .index = number}, "unknown");
  }
  const auto json = told(found);
  for (const std::string name : {"refused", "reasons", "publications"}) {
    EXPECT_EQ(json[(name + "_total").c_str()].number(), 1500) << name;
    EXPECT_EQ(json[name.c_str()].size(), 1000) << name;
  }
  EXPECT_EQ(json["notes_total"]["unknown_element"].number(), 1500);
  EXPECT_EQ(json["notes_total"]["damaged_k"].number(), 0);
  EXPECT_EQ(json["notes"].size(), 1000);
}

}  // namespace
}  // namespace zotconf
