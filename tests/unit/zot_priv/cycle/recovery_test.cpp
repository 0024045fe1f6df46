// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/cycle/recovery.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <filesystem>
#include <string>

#include "utilities/owner.hpp"
#include "verdict_fixture.hpp"
#include "zot_priv/storage/undo.hpp"

namespace {
using namespace zot::test;

constexpr const char *told =
    "A commit was interrupted: the configuration before it is in force again\n";
constexpr std::uint32_t topics = ZOT_TOPIC_K | ZOT_TOPIC_GPB | ZOT_TOPIC_FILE;

class Recovery : public WaitingForVerdict {
 protected:
  // The files of the new configuration are missing, so its commit fails half-way.
  void interrupt_commit() {
    std::filesystem::remove_all(e.tmp_root() + "/config");
    ASSERT_EQ(run_commit(), ZOT_ERR_GENERIC);
    ASSERT_TRUE(zot::has_undo(*e.handle()));
    e.log().clear();
  }
};

TEST_F(Recovery, UndoesAnInterruptedCommitAndWarns) {
  interrupt_commit();
  zot::undo_interrupted_commit(*e.handle());
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
  EXPECT_TRUE(logged(e.log(), {ZOT_LOG_WARN, topics, "undo_interrupted_commit", told}));
}

TEST_F(Recovery, IsPartOfACreationAndOfAReload) {
  interrupt_commit();
  e.restart();
  EXPECT_TRUE(e.log().contains(told));
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(Recovery, SaysNothingWithoutAnInterruptedCommit) {
  zot::undo_interrupted_commit(*e.handle());
  EXPECT_TRUE(e.log().lines().empty());
}

TEST_F(Recovery, LeavesTheCacheToAProcessThatHoldsIt) {
  interrupt_commit();
  const zot::descriptor other(::open(e.conf_root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_EQ(::flock(other.get(), LOCK_EX | LOCK_NB), 0);
  zot::undo_interrupted_commit(*e.handle());
  EXPECT_TRUE(zot::has_undo(*e.handle()));
}

TEST_F(Recovery, IsNoneInDevMode) {
  interrupt_commit();
  e.handle()->dev_mode = 1;
  zot::undo_interrupted_commit(*e.handle());
  EXPECT_TRUE(zot::has_undo(*e.handle()));
}

TEST_F(Recovery, RemovesLeftoversAtCreation) {
  write_bytes(e.conf_root() + "undo.new/subsys.k", "left");
  write_bytes(e.conf_root() + "undo.old/config/Wlan/guest/1", "left");
  e.restart();
  EXPECT_FALSE(exists(e.conf_root() + "undo.new"));
  EXPECT_FALSE(exists(e.conf_root() + "undo.old"));
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(Recovery, TakesAFailedCommitBackInMemory) {
  interrupt_commit();
  ASSERT_TRUE(zot::undo_failed_commit(*e.handle()));
  EXPECT_EQ(text_of(slot(ZOT_SLOT_CURRENT).k), first_configuration().k_text());
  EXPECT_EQ(slot(ZOT_SLOT_LAST).k, nullptr);
  EXPECT_EQ(text_of(slot(ZOT_SLOT_TMP).k), second_configuration().k_text());
  EXPECT_EQ(e.handle()->own.commit_begun, 0U);
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(Recovery, LetsWhatTheCommitGaveUpBeLoadedAgain) {
  install_last(e, third_configuration());
  interrupt_commit();
  ASSERT_TRUE(zot::undo_failed_commit(*e.handle()));
  zot_k_meta meta{};
  EXPECT_EQ(zot_util_get_k_meta(e.handle(), &meta, ZOT_K_LAST), ZOT_OK);
  EXPECT_STREQ(meta.config_id, "00000000-0000-0000-0000-000000000003");
}

TEST_F(Recovery, OfACommitThatDidNotFailChangesNothing) {
  const zot_slot before = slot(ZOT_SLOT_CURRENT);
  EXPECT_TRUE(zot::undo_failed_commit(*e.handle()));
  EXPECT_EQ(slot(ZOT_SLOT_CURRENT).k, before.k);
}

}  // namespace
