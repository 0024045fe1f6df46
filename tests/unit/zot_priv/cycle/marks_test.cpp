// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/cycle/marks.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gpb_entries.hpp"
#include "verdict_fixture.hpp"

namespace {
using namespace zot::test;

using texts = std::vector<std::string>;

const texts in_force = {"/Wlan/guest/1=2", "/Zone/hq/1=2", "/Radio/r5/3=2"};
const texts waiting = {"/Wlan/guest/2=16", "/Wlan/staff/1=8", "/Zone/hq/1=4", "/Radio/r5/3=2"};

// The second configuration waits for its verdict while the first one is in force.
class Marks : public WaitingForVerdict {
 protected:
  int settle() { return zot::ensure_marks(*e.handle()); }
  [[nodiscard]] texts marks() const { return marked_paths(e.handle()->ret.list); }
  void let_nothing_be_in_force() { zot_priv_free_k_ex_safe(e.handle(), ZOT_SLOT_CURRENT, nullptr); }
};

TEST_F(Marks, StayThoseOfTheConfigurationThatWaits) {
  EXPECT_EQ(settle(), ZOT_OK);
  EXPECT_EQ(marks(), waiting);
}

TEST_F(Marks, StayThoseOfTheCommittedConfiguration) {
  ASSERT_EQ(run_commit(), ZOT_OK);
  EXPECT_EQ(settle(), ZOT_OK);
  EXPECT_EQ(marks(), waiting);
}

TEST_F(Marks, AreRenewedWhenNothingWaitsAnyMore) {
  zot_core_reset_stat(&e.handle()->stat);
  EXPECT_EQ(settle(), ZOT_OK);
  EXPECT_EQ(marks(), in_force);
  EXPECT_EQ(e.handle()->ret.root, e.handle()->conf_root);
}

TEST_F(Marks, AreRenewedWhenThereAreNone) {
  ASSERT_EQ(run_roll_back(), ZOT_OK);
  zot_priv_free_ret_gpb_list(e.handle());
  EXPECT_EQ(settle(), ZOT_OK);
  EXPECT_EQ(marks(), in_force);
}

TEST_F(Marks, AreNoneWhenNothingIsInForce) {
  let_nothing_be_in_force();
  zot_core_reset_stat(&e.handle()->stat);
  EXPECT_EQ(settle(), ZOT_OK);
  EXPECT_EQ(marks(), texts{});
}

TEST_F(Marks, OfAConfigurationThatWaitsStayWhenNothingIsInForce) {
  let_nothing_be_in_force();
  EXPECT_EQ(settle(), ZOT_OK);
  EXPECT_EQ(marks(), waiting);
}

}  // namespace
