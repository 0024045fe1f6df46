// SPDX-License-Identifier: Apache-2.0
// A configuration that waits to be committed or rolled back.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/cycle/cycle_checks.hpp"
#include "tests/support/service.hpp"

namespace zot::test {

inline constexpr const char *already_done = "No need to run because commit or roll-back has done\n";

// The second configuration waits for its verdict while the first one is in force.
class WaitingForVerdict : public testing::Test {
 protected:
  void SetUp() override {
    install_current(e, first_configuration());
    remote.publish(second_configuration());
    ASSERT_EQ(e.get().status, ZOT_OK);
    ASSERT_EQ(state_of(e), ZOT_CYCLE_NEW_CONF);
    e.log().clear();
  }
  int run_commit() { return zot_priv_commit_conf(e.handle()); }
  int run_roll_back() { return zot_priv_commit_fail_k(e.handle()); }
  [[nodiscard]] std::string in_cache(const std::string &name) const {
    return read_bytes(e.conf_root() + name);
  }
  [[nodiscard]] const zot_slot &slot(std::uint32_t index) const { return slot_of(e, index); }

  service remote;
  element e{remote.port()};
};

}  // namespace zot::test
