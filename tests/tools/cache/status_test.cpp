// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/status.hpp"

#include <sys/stat.h>

#include <csignal>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/terminal.hpp"

namespace zot::test {
namespace {

constexpr const char *first_id = "00000000-0000-0000-0000-000000000001";
constexpr const char *second_id = "00000000-0000-0000-0000-000000000002";

class Status : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
  }
  // One configuration is in force, and the service is stopped.
  void commit_first() {
    commit_source({"--config-id", first_id, "--firmware", "1.2"});
    service_->stop(SIGTERM);
    service_.reset();
  }
  [[nodiscard]] finished status(const environment &more = {}) const {
    environment all = variables();
    for (const auto &[name, value] : more) {
      all[name] = value;
    }
    finished done = run_zotconf({"status", "--json"}, all);
    EXPECT_EQ(done.status, 0) << done.err;
    const bool is_warned = done.err.starts_with("zotconf: warning: ZOT_PREFIX_");
    EXPECT_TRUE(done.err.empty() || (is_warned && !more.empty())) << done.err;
    return done;
  }
  [[nodiscard]] json_value next_get(const environment &more = {}) const {
    return json_value(status(more).out)["next_get"];
  }
  [[nodiscard]] json_value slot(int number) const {
    return json_value(status().out)["slots"][number];
  }
  // The sentences about the next get, one per line.
  [[nodiscard]] std::string sentences(const environment &more = {}) const {
    std::string text;
    const json_value list = next_get(more)["sentences"];
    for (int i = 0; i < list.size(); ++i) {
      text += list[i].text() + "\n";
    }
    return text;
  }
};

TEST_F(Status, TellsThatNothingIsCached) {
  const json_value told(status().out);
  ASSERT_EQ(told["slots"].size(), 4);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(told["slots"][i]["state"].text(), "absent");
    EXPECT_TRUE(told["slots"][i]["entries"].is_null());
  }
  EXPECT_EQ(told["next_get"]["outcome"].text(), "all_new");
}

TEST_F(Status, TellsThatTheCacheWouldBeCreatedAndCreatesNothing) {
  EXPECT_TRUE(has(sentences(), "the cache would be created at " + conf("")));
  EXPECT_FALSE(exists(dir_ / "device"));
}

TEST_F(Status, WritesNotAByte) {
  commit_first();
  const auto before = snapshot(dir_ / "device");
  EXPECT_EQ(run({"status"}).status, 0);
  EXPECT_EQ(snapshot(dir_ / "device"), before);
}

TEST_F(Status, WorksOnACacheThatCannotBeWritten) {
  commit_first();
  for (const char *folder : {"", "knowledge", "config"}) {
    ASSERT_EQ(::chmod(conf(folder).c_str(), 0555), 0);
  }
  EXPECT_EQ(slot(0)["state"].text(), "good");
  for (const char *folder : {"", "knowledge", "config"}) {
    ASSERT_EQ(::chmod(conf(folder).c_str(), 0755), 0);
  }
}

TEST_F(Status, TellsPathsAndService) {
  environment elsewhere = variables();
  elsewhere["ZOT_REMOTE_PORT"] = "9000";
  const json_value told(run_zotconf({"status", "--json"}, elsewhere).out);
  EXPECT_EQ(told["conf_root"].text(), conf(""));
  EXPECT_EQ(told["tmp_root"].text() + "/", scratch(""));
  EXPECT_FALSE(told["dev_mode"].flag());
  EXPECT_EQ(told["port"].number(), 9000);
  EXPECT_EQ(told["service"].text(), "http://127.0.0.1:9000");
  EXPECT_EQ(told["slots"][1]["slot"].text(), "last");
  EXPECT_EQ(told["slots"][1]["k"].text(), conf("knowledge/prev_subsys.k"));
  EXPECT_EQ(told["slots"][3]["checksum_file"].text(), scratch("subsys.checksum"));
}

TEST_F(Status, DescribesTheConfigurationInForce) {
  commit_first();
  const json_value current = slot(0);
  EXPECT_EQ(current["slot"].text(), "current");
  EXPECT_EQ(current["state"].text(), "good");
  EXPECT_EQ(current["config_id"].text(), first_id);
  EXPECT_EQ(current["cluster"].text(), "cluster-1");
  EXPECT_EQ(current["firmware"].text(), "1.2");
  EXPECT_EQ(current["entries"].number(), 2);
  EXPECT_EQ(current["bytes"].number(), 16);
  EXPECT_TRUE(current["written"].text().ends_with("Z"));
  EXPECT_TRUE(current["wrong"].is_null());
}

TEST_F(Status, ForeseesTheComparison) {
  commit_first();
  EXPECT_EQ(next_get()["outcome"].text(), "compared");
  EXPECT_TRUE(has(sentences(), std::string("equal to the one in force (config ID ") + first_id +
                                   ") is answered with no update\n"));
}

TEST_F(Status, ForeseesTheAnswerToWhatWasRolledBack) {
  commit_source({"--config-id", first_id});
  put("Wlan/a", "ssid=bad");
  publish_source({"--config-id", second_id});
  ASSERT_EQ(cycle("--roll-back").status, 5);
  const std::string expected =
      std::string("a K equal to the rolled-back one (config ID ") + second_id;
  EXPECT_TRUE(
      has(sentences(), expected + ") is answered with -13; zotconf forget takes that back\n"))
      << sentences();
  EXPECT_EQ(cycle("--commit").status, 4);
}

TEST_F(Status, ForeseesThatADamagedRolledBackKIsForgotten) {
  commit_source();
  put("Wlan/a", "ssid=bad");
  publish_source();
  ASSERT_EQ(cycle("--roll-back").status, 5);
  write_bytes(conf("knowledge/corrupted.k"), "{}");
  EXPECT_TRUE(has(sentences(), "the rolled-back K is damaged and would be taken as new"));
  EXPECT_EQ(cycle("--commit").status, 0);
}

// Also checks that the prediction is right: after "all_new" the next get lists every entry as
// added.
class DamagedInForce : public Status, public testing::WithParamInterface<const char *> {};

TEST_P(DamagedInForce, IsForeseenAsNothingInForce) {
  commit_source();
  std::filesystem::remove(conf(GetParam()));
  EXPECT_EQ(next_get()["outcome"].text(), "all_new");
  EXPECT_TRUE(has(sentences(), "nothing is in force, because " + conf("") + "")) << sentences();
  const json_value current = slot(0);
  EXPECT_EQ(current["state"].text(), "damaged");
  EXPECT_LT(current["wrong"]["code"].number(), 0);
  EXPECT_NE(current["wrong"]["text"].text(), "");
  put("Ap/x", "model=x");
  publish_source();
  EXPECT_TRUE(has(cycle("--commit").out, "3 entries, 3 added"));
}

INSTANTIATE_TEST_SUITE_P(Files, DamagedInForce,
                         testing::Values("knowledge/subsys.k", "knowledge/subsys.checksum",
                                         "config/Zone/z/1"));

TEST_F(Status, NamesTheBadFileOfTheConfigurationInForce) {
  commit_first();
  write_bytes(conf("config/Zone/z/1"), "country=FR");
  const json_value current = slot(0);
  EXPECT_EQ(current["bad_file"].text(), conf("config/Zone/z/1"));
  EXPECT_EQ(current["wrong"]["code"].number(), -8);
  EXPECT_EQ(current["wrong"]["name"].text(), "ZOT_ERR_CORRUPTED");
  EXPECT_TRUE(has(current["wrong"]["text"].text(), "wrong GPB checksum"));
}

TEST_F(Status, ForeseesTheRefusalOfAPath) {
  const environment blank = {{"ZOT_PREFIX_CONF_ROOT", dir_ / "a b"}};
  EXPECT_EQ(next_get(blank)["outcome"].text(), "refused");
  EXPECT_EQ(next_get(blank)["error"]["code"].number(), -5);
  EXPECT_TRUE(has(sentences(blank), "conf root holds characters that a shell would interpret"));
  EXPECT_TRUE(has(sentences({{"ZOT_PREFIX_TMP_ROOT", dir_ / "a;b"}}), "tmp root holds"));
  EXPECT_TRUE(tree(dir_.path()).size() == 2 && !exists(dir_ / "a b") && !exists(dir_ / "a;b"));
}

TEST_F(Status, ForeseesThatADirectoryCannotBeCreated) {
  write_bytes(dir_ / "plain", "a file");
  const environment below = {{"ZOT_PREFIX_CONF_ROOT", dir_ / "plain"}};
  EXPECT_EQ(next_get(below)["outcome"].text(), "fails");
  EXPECT_TRUE(has(sentences(below), "fail to create dir for conf root = ")) << sentences(below);
}

TEST_F(Status, ForeseesThatAFileInTheWayIsReplaced) {
  write_bytes(conf("knowledge"), "in the way");
  EXPECT_TRUE(has(sentences(), conf("knowledge is no directory and would be replaced by one")));
  EXPECT_EQ(read_bytes(conf("knowledge")), "in the way");
}

TEST_F(Status, GoesOnBesideALinkToItself) {
  commit_first();
  std::filesystem::create_symlink("corrupted.k", conf("knowledge/corrupted.k"));
  EXPECT_EQ(slot(0)["state"].text(), "good");
}

TEST_F(Status, TellsDevMode) {
  commit_first();
  const environment dev = {{"ZOT_DEV_PATH", conf("")}};
  const json_value told(status(dev).out);
  EXPECT_TRUE(told["dev_mode"].flag());
  EXPECT_EQ(told["next_get"]["outcome"].text(), "dev_path");
  EXPECT_TRUE(has(sentences(dev), "dev mode: K and files are read from " + conf("")));
  EXPECT_TRUE(has(run_zotconf({"status"}, {{"ZOT_DEV_PATH", conf("")}}).out, "dev mode:    on\n"));
}

TEST_F(Status, ForeseesThatDevModeFailsWithoutAK) {
  std::filesystem::create_directories(dir_ / "dev");
  const environment dev = {{"ZOT_DEV_PATH", dir_ / "dev"}};
  EXPECT_EQ(next_get(dev)["outcome"].text(), "fails");
  EXPECT_EQ(next_get(dev)["error"]["name"].text(), "ZOT_ERR_NO_FILE");
  EXPECT_FALSE(exists(dir_ / "dev/knowledge"));
}

TEST_F(Status, IsATableForPeople) {
  commit_first();
  const std::string out = run({"status"}).out;
  EXPECT_TRUE(has(out, "conf root:   " + conf("\n"))) << out;
  EXPECT_TRUE(has(out, "SLOT     STATE   CONFIG ID ")) << out;
  EXPECT_TRUE(has(out, std::string("current  good    ") + first_id + "  cluster-1  1.2 ")) << out;
  EXPECT_TRUE(has(out, "last     absent  -")) << out;
  EXPECT_TRUE(has(out, "the next get:\n  - the service at http://127.0.0.1:")) << out;
}

TEST_F(Status, HasColoursOnATerminalOnly) {
  commit_first();
  EXPECT_TRUE(has(run_on_terminal({"status"}, variables()).out, "\x1b[32mgood\x1b[0m"));
  environment plain = variables();
  plain["NO_COLOR"] = "1";
  EXPECT_FALSE(has(run_on_terminal({"status"}, plain).out, "\x1b"));
  EXPECT_FALSE(has(run({"status"}).out, "\x1b"));
}

}  // namespace
}  // namespace zot::test
