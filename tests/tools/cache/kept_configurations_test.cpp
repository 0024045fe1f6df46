// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/kept_configurations.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/interrupted.hpp"
#include "tools/output/exit_status.hpp"

namespace zot::test {
namespace {

constexpr const char *first_id = "00000000-0000-0000-0000-000000000001";
constexpr const char *second_id = "00000000-0000-0000-0000-000000000002";

class KeptConfigurations : public CachedElement {
 protected:
  void SetUp() override { put("Wlan/a", "ssid=a"); }

  [[nodiscard]] zotconf::cache_paths paths() const {
    return {.conf_root = conf_root_, .tmp_root = scratch("")};
  }
  [[nodiscard]] std::string k_digest() const { return sha256_hex(read_bytes(published(".k"))); }
};

TEST_F(KeptConfigurations, NamesTheOneInForce) {
  commit_source({"--config-id", first_id});
  zotconf::kept_configurations kept(paths());
  const auto found = kept.read();
  ASSERT_TRUE(found.in_force);
  EXPECT_EQ(found.in_force->digest, k_digest());
  EXPECT_EQ(found.in_force->config_id, first_id);
  EXPECT_FALSE(found.refused);
}

TEST_F(KeptConfigurations, NamesTheOneThatWasRolledBackUntilItIsForgotten) {
  commit_source({"--config-id", first_id});
  zotconf::kept_configurations kept(paths());
  const auto before = kept.read();
  put("Wlan/a", "ssid=b");
  publish_source({"--config-id", second_id});
  ASSERT_EQ(cycle("--roll-back").status, zotconf::exit_rolled_back);
  const auto after = kept.read();
  EXPECT_EQ(after.in_force, before.in_force);
  ASSERT_TRUE(after.refused);
  EXPECT_EQ(after.refused->digest, k_digest());
  EXPECT_EQ(after.refused->config_id, second_id);
  ASSERT_EQ(run({"forget"}).status, 0);
  EXPECT_FALSE(kept.read().refused);
}

TEST_F(KeptConfigurations, NoticesEachCommit) {
  commit_source();
  zotconf::kept_configurations kept(paths());
  for (int i = 0; i < 5; ++i) {
    put("Wlan/a", "ssid=" + std::to_string(i));
    commit_source();
    EXPECT_EQ(kept.read().in_force->digest, k_digest()) << i;
  }
}

TEST_F(KeptConfigurations, NamesTheOneThatTheNextStartPutsBack) {
  commit_source({"--config-id", first_id});
  const std::string first = k_digest();
  zotconf::kept_configurations kept(paths());
  EXPECT_EQ(kept.read().in_force->digest, first);
  put("Wlan/a", "ssid=b");
  publish_source({"--config-id", second_id});
  const interrupted_commit commit(conf_root_);
  commit.rotate_k(read_bytes(published(".k")));
  EXPECT_EQ(kept.read().in_force->digest, first);
}

TEST_F(KeptConfigurations, NamesNoneThatIsDamaged) {
  commit_source();
  zotconf::kept_configurations kept(paths());
  ASSERT_TRUE(kept.read().in_force);
  flip_bit(conf("knowledge/subsys.k"));
  EXPECT_FALSE(kept.read().in_force);
}

TEST_F(KeptConfigurations, ACacheWithoutAConfigurationHasNone) {
  std::filesystem::create_directories(conf(""));
  zotconf::kept_configurations kept(paths());
  EXPECT_FALSE(kept.read().in_force);
  EXPECT_FALSE(kept.read().refused);
}

TEST_F(KeptConfigurations, ACacheThatIsNotThereCannotBeRead) {
  zotconf::kept_configurations kept(paths());
  EXPECT_THROW(static_cast<void>(kept.read()), std::system_error);
}

// A process without permission must not report that nothing is in force.
TEST_F(KeptConfigurations, ACacheOfAnotherUserCannotBeRead) {
  commit_source();
  for (const std::string part : {"", "knowledge", "knowledge/subsys.k"}) {
    const auto before = std::filesystem::status(conf(part)).permissions();
    std::filesystem::permissions(conf(part), std::filesystem::perms::none);
    const pid_t child = ::fork();
    if (child == 0) {
      if (::geteuid() == 0 && ::setuid(65534) != 0) {
        ::_exit(3);
      }
      try {
        zotconf::kept_configurations kept(paths());
        static_cast<void>(kept.read());
        ::_exit(1);
      } catch (const std::system_error &) {
        ::_exit(0);
      }
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0) << part;
    std::filesystem::permissions(conf(part), before);
  }
}

TEST_F(KeptConfigurations, InDevModeNothingIsInForce) {
  commit_source();
  zotconf::cache_paths dev = paths();
  dev.dev_mode = true;
  EXPECT_FALSE(zotconf::kept_configurations(dev).read().in_force);
}

}  // namespace
}  // namespace zot::test
