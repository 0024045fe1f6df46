// SPDX-License-Identifier: Apache-2.0
#include "tests/tools/element/watching.hpp"
#include "tests/tools/support/unit_file.hpp"

namespace zot::test {
namespace {

using words = std::vector<std::string>;

class WatchUnit : public testing::Test {
 protected:
  [[nodiscard]] std::string value_of(const std::string &section, const std::string &name) const {
    return unit_.value_of(section, name);
  }

  unit_file unit_{ZOTCONF_WATCH_UNIT};
};

TEST_F(WatchUnit, HasLinesOfSettingsInSectionsOnly) {
  unit_.expect_form();
}

TEST_F(WatchUnit, TellsHowItIsStarted) {
  EXPECT_EQ(value_of("Service", "Type"), "notify");
  EXPECT_EQ(value_of("Service", "Restart"), "on-failure");
  EXPECT_EQ(value_of("Service", "RestartPreventExitStatus"), std::to_string(usage));
  EXPECT_EQ(value_of("Service", "EnvironmentFile"), "-/etc/default/zotconf-watch");
  EXPECT_EQ(value_of("Service", "RuntimeDirectory"), "zotconf-watch");
  EXPECT_EQ(value_of("Install", "WantedBy"), "multi-user.target");
}

// A relay runs as another user, and reads the file of --state there.
TEST_F(WatchUnit, HasAFolderThatOthersMayEnterForTheStateOnly) {
  EXPECT_EQ(value_of("Service", "StateDirectory"), "zotconf-watch");
  EXPECT_EQ(value_of("Service", "StateDirectoryMode"), "0755");
  EXPECT_EQ(value_of("Service", "RuntimeDirectoryMode"), "0700");
}

// Runs the command of ExecStart with its variables replaced. The library refuses the cache
// directory, so the program ends after it has accepted the options.
TEST_F(WatchUnit, StartsTheProgramWithOptionsThatItTakes) {
  const temp_dir dir;
  words args =
      unit_.command({{"${ZOTCONF_INDEX}", {"001122334455"}},
                     {"${ZOTCONF_APPLY}", {"/usr/local/sbin/apply --now"}},
                     {"$ZOTCONF_OPTIONS", {"--every", "1m", "--state", dir / "element.json"}}});
  EXPECT_EQ(args.front(), "@bindir@/zotconf");
  args.erase(args.begin());
  EXPECT_EQ(args.front(), "watch");
  EXPECT_EQ(args.size(), 9U);
  const environment refused = {{"ZOT_DEV_PATH", ""}, {"ZOT_PREFIX_CONF_ROOT", dir / "a;b"}};
  EXPECT_EQ(run_zotconf(args, refused).status, failed);
  args.emplace_back("--no-such-option");
  EXPECT_EQ(run_zotconf(args, refused).status, usage);
}

}  // namespace
}  // namespace zot::test
