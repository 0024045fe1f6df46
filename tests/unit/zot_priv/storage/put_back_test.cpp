// SPDX-License-Identifier: Apache-2.0
#include "zot_priv/storage/put_back.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/cycle/cycle_checks.hpp"
#include "tests/support/element.hpp"
#include "zot_list.hpp"
#include "zot_priv/model/verified_bytes.hpp"

namespace {
using namespace zot::test;

// The first configuration is in force and in memory.
class PutBack : public testing::Test {
 protected:
  PutBack() {
    install_current(e, first_configuration());
    EXPECT_EQ(zot_priv_init_load_conf(e.handle()), ZOT_OK);
  }
  [[nodiscard]] zot_list *gpbs() const { return slot_of(e, ZOT_SLOT_CURRENT).gpbs; }
  [[nodiscard]] std::string config() const { return e.conf_root() + "config"; }

  element e;
};

TEST_F(PutBack, WritesTheFilesInPlaceOfWhatACopyBrought) {
  std::filesystem::remove_all(config());
  second_configuration().install_cache(e.conf_root());
  write_bytes(config() + "/Zone", "a file where the folder was");
  ASSERT_TRUE(zot::put_back(*e.handle(), gpbs()));
  first_configuration().install_k(knowledge_of(e), "subsys.k", "subsys.checksum");
  EXPECT_TRUE(is_in_force_on_disk(e.conf_root(), first_configuration()));
}

TEST_F(PutBack, OfNothingLeavesNothing) {
  ASSERT_TRUE(zot::put_back(*e.handle(), nullptr));
  EXPECT_FALSE(exists(config()));
}

TEST_F(PutBack, SaysWhatKeptAFileFromBeingWritten) {
  std::filesystem::remove_all(e.conf_root());
  write_bytes(e.conf_root().substr(0, e.conf_root().size() - 1), "no folder");
  EXPECT_FALSE(zot::put_back(*e.handle(), gpbs()));
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(PutBack, IsPossibleForFilesInMemory) {
  EXPECT_TRUE(zot::can_put_back(gpbs()));
  zot::drop_content(zot::gpb_of(gpbs()->next));
  EXPECT_FALSE(zot::can_put_back(gpbs()));
}

TEST_F(PutBack, IsPossibleForFilesThatTheProcessMayWrite) {
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto can_with = [&](rlim_t most) {
    const struct rlimit limit { most, before.rlim_max };
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    const bool can = zot::can_put_back(gpbs());
    EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    return can;
  };
  EXPECT_TRUE(can_with(9));
  errno = 0;
  EXPECT_FALSE(can_with(8));
  EXPECT_EQ(errno, EFBIG);
}

}  // namespace
