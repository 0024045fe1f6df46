// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/cycle/doubts.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "gpb_entries.hpp"
#include "tests/cycle/cycle_checks.hpp"

namespace {

using namespace zot::test;

// A handle that has loaded the rolled-back K of the cache.
class ForgetChangedRefusal : public testing::Test {
 protected:
  ForgetChangedRefusal() {
    install_corrupted(e, first_configuration());
    zot_priv_init_load_fail_k(e.handle());
  }
  [[nodiscard]] const zot_k *refused() const { return slot_of(e, ZOT_SLOT_CORRUPTED).k; }
  // The text of the rolled-back K that the next look finds.
  std::string refused_then() {
    zot::forget_changed_corrupted(*e.handle());
    zot_priv_init_load_fail_k(e.handle());
    return refused() != nullptr ? text_of(refused()) : "none";
  }
  void expect_kept() {
    const zot_k *const before = refused();
    ASSERT_NE(before, nullptr);
    zot::forget_changed_corrupted(*e.handle());
    EXPECT_EQ(refused(), before);
  }

  element e;
  const std::string checksum = knowledge_of(e) + "/corrupted.checksum";
};

TEST_F(ForgetChangedRefusal, KeepsTheKThatTheCacheNames) {
  expect_kept();
}

TEST_F(ForgetChangedRefusal, TakesTheKThatAnotherProcessRefusedSince) {
  install_corrupted(e, second_configuration());
  EXPECT_EQ(refused_then(), second_configuration().k_text());
}

TEST_F(ForgetChangedRefusal, TakesTheKThatAnotherProcessRefusedFirst) {
  std::filesystem::remove(checksum);
  ASSERT_EQ(refused_then(), "none");
  install_corrupted(e, second_configuration());
  EXPECT_EQ(refused_then(), second_configuration().k_text());
}

TEST_F(ForgetChangedRefusal, GivesUpAKThatAnotherProcessHasCommittedSince) {
  std::filesystem::remove(checksum);
  EXPECT_EQ(refused_then(), "none");
}

TEST_F(ForgetChangedRefusal, KeepsItWhenTheFileNamesNoneOrCannotBeRead) {
  write_bytes(checksum, "");
  errno = ENOENT;
  expect_kept();
  write_bytes(checksum, "0123\n");
  expect_kept();
  std::filesystem::remove(checksum);
  std::filesystem::create_directory(checksum);
  expect_kept();
}

TEST_F(ForgetChangedRefusal, KeepsItInDevMode) {
  std::filesystem::remove(checksum);
  e.handle()->dev_mode = 1;
  expect_kept();
}

// What the cache names in this state belongs to a commit that is undone.
TEST_F(ForgetChangedRefusal, KeepsItWhileACommitIsNotUndone) {
  std::filesystem::remove(checksum);
  std::filesystem::create_directory(e.conf_root() + "undo");
  expect_kept();
}

TEST(LeaveMovedCache, ForgetsWhatWasBegunThere) {
  element e;
  e.handle()->own.commit_begun = 1;
  e.handle()->stat.state = ZOT_CYCLE_NEW_CONF;
  zot::leave_moved_cache(*e.handle());
  EXPECT_EQ(e.handle()->own.commit_begun, 1U);
  zot::mark_moved(*e.handle());
  zot::leave_moved_cache(*e.handle());
  EXPECT_EQ(e.handle()->own.commit_begun, 0U);
  EXPECT_EQ(state_of(e), 0U);
}

}  // namespace
