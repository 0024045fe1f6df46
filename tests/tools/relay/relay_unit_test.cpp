// SPDX-License-Identifier: Apache-2.0
#include "tests/tools/support/process.hpp"
#include "tests/tools/support/unit_file.hpp"

namespace zot::test {
namespace {

class RelayUnit : public testing::Test {
 protected:
  [[nodiscard]] std::string value_of(const std::string &section, const std::string &name) const {
    return unit_.value_of(section, name);
  }

  unit_file unit_{ZOTCONF_RELAY_UNIT};
};

TEST_F(RelayUnit, HasLinesOfSettingsInSectionsOnly) {
  unit_.expect_form();
}

TEST_F(RelayUnit, TellsHowItIsStarted) {
  constexpr int wrong_usage = 2;
  EXPECT_EQ(value_of("Service", "Type"), "notify");
  EXPECT_EQ(value_of("Service", "Restart"), "on-failure");
  EXPECT_EQ(value_of("Service", "RestartPreventExitStatus"), std::to_string(wrong_usage));
  EXPECT_EQ(value_of("Service", "EnvironmentFile"), "-/etc/default/zotconf-relay");
  EXPECT_EQ(value_of("Install", "WantedBy"), "multi-user.target");
}

TEST_F(RelayUnit, MayWriteOnlyToItsStoreAndItsOwnTemporaryFolder) {
  EXPECT_EQ(value_of("Service", "DynamicUser"), "yes");
  EXPECT_EQ(value_of("Service", "ProtectSystem"), "strict");
  EXPECT_EQ(value_of("Service", "StateDirectory"), "zotconf-relay");
  EXPECT_EQ(value_of("Service", "PrivateTmp"), "yes");
  EXPECT_EQ(value_of("Service", "CapabilityBoundingSet"), "");
}

// Runs the command of ExecStart with its variables replaced. The user does not exist, so the
// program ends after it has accepted the options.
TEST_F(RelayUnit, StartsTheProgramWithOptionsThatItTakes) {
  constexpr int failed = 1;
  constexpr int wrong_usage = 2;
  const temp_dir dir;
  std::vector<std::string> args = unit_.command({
      {"${ZOTCONF_UPSTREAM}", {"https://config.example.net/site"}},
      {"${ZOTCONF_INDEX}", {"001122334455"}},
      {"%S/zotconf-relay", {dir / "store"}},
      {"$ZOTCONF_RELAY_OPTIONS",
       {"--unsigned", "--report", "https://reports.example.net/reports", "--element",
        "/var/lib/zotconf-watch/element.json", "--user", "no-such-user"}},
  });
  EXPECT_EQ(args.front(), "@bindir@/zotconf");
  args.erase(args.begin());
  EXPECT_EQ(args.front(), "relay");
  EXPECT_EQ(args.size(), 14U);
  const finished done = run_zotconf(args);
  EXPECT_EQ(done.status, failed) << done.err;
  EXPECT_NE(done.err.find("no-such-user"), std::string::npos) << done.err;
  args.emplace_back("--no-such-option");
  EXPECT_EQ(run_zotconf(args).status, wrong_usage);
}

}  // namespace
}  // namespace zot::test
