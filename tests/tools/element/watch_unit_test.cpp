// SPDX-License-Identifier: Apache-2.0
#include <cctype>
#include <map>
#include <stdexcept>

#include "tests/tools/element/watching.hpp"

namespace zot::test {
namespace {

using words = std::vector<std::string>;

// The unit file as a service manager reads it.
class WatchUnit : public testing::Test {
 protected:
  // The value of a line NAME=VALUE in a section.
  [[nodiscard]] static std::string value_of(const std::string &section, const std::string &name) {
    std::string current;
    for (const std::string &line : lines_of(read_bytes(ZOTCONF_WATCH_UNIT))) {
      if (line.starts_with('[')) {
        current = line;
      } else if (current == "[" + section + "]" && line.starts_with(name + "=")) {
        return line.substr(name.size() + 1);
      }
    }
    throw std::runtime_error("no " + name + " in " + section);
  }
};

TEST_F(WatchUnit, HasLinesOfSettingsInSectionsOnly) {
  std::string section;
  for (const std::string &line : lines_of(read_bytes(ZOTCONF_WATCH_UNIT))) {
    if (line.empty() || line.starts_with('#')) {
      continue;
    }
    if (line.starts_with('[')) {
      section = line;
      EXPECT_TRUE(line == "[Unit]" || line == "[Service]" || line == "[Install]") << line;
      continue;
    }
    EXPECT_FALSE(section.empty()) << line;
    EXPECT_NE(line.find('='), std::string::npos) << line;
    EXPECT_TRUE(std::isupper(static_cast<unsigned char>(line.front()))) << line;
  }
}

TEST_F(WatchUnit, TellsHowItIsStarted) {
  EXPECT_EQ(value_of("Service", "Type"), "notify");
  EXPECT_EQ(value_of("Service", "Restart"), "on-failure");
  EXPECT_EQ(value_of("Service", "RestartPreventExitStatus"), std::to_string(usage));
  EXPECT_EQ(value_of("Service", "EnvironmentFile"), "-/etc/default/zotconf-watch");
  EXPECT_EQ(value_of("Service", "RuntimeDirectory"), "zotconf-watch");
  EXPECT_EQ(value_of("Install", "WantedBy"), "multi-user.target");
}

// Runs the command of ExecStart with its variables replaced. The library refuses the cache
// directory, so the program ends after it has accepted the options.
TEST_F(WatchUnit, StartsTheProgramWithOptionsThatItTakes) {
  const temp_dir dir;
  const std::map<std::string, words> settings = {
      {"${ZOTCONF_INDEX}", {"001122334455"}},
      {"${ZOTCONF_APPLY}", {"/usr/local/sbin/apply --now"}},
      {"$ZOTCONF_OPTIONS", {"--every", "1m"}}};
  std::istringstream line(value_of("Service", "ExecStart"));
  std::string word;
  line >> word;
  EXPECT_EQ(word, "@bindir@/zotconf");
  words args;
  while (line >> word) {
    const auto found = settings.find(word);
    const words more = found != settings.end() ? found->second : words{word};
    args.insert(args.end(), more.begin(), more.end());
  }
  EXPECT_EQ(args.front(), "watch");
  EXPECT_EQ(args.size(), 7U);
  const environment refused = {{"ZOT_DEV_PATH", ""}, {"ZOT_PREFIX_CONF_ROOT", dir / "a;b"}};
  EXPECT_EQ(run_zotconf(args, refused).status, failed);
  args.emplace_back("--no-such-option");
  EXPECT_EQ(run_zotconf(args, refused).status, usage);
}

}  // namespace
}  // namespace zot::test
