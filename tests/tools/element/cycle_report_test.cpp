// SPDX-License-Identifier: Apache-2.0
#include "tools/element/cycle_report.hpp"

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/terminal.hpp"

namespace zot::test {
namespace {

class CycleReport : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    publish_source({"--config-id", config_id_, "--firmware", "7.1"});
    serve();
  }
  [[nodiscard]] finished run_json(const std::vector<std::string> &more) const {
    std::vector<std::string> args = {"cycle", "--index", index_, "--json"};
    args.insert(args.end(), more.begin(), more.end());
    return run(args);
  }

  std::string config_id_ = "5d0c7f0e-6f0b-4c3a-9d55-0a1b2c3d4e5f";
};

TEST_F(CycleReport, TellsANewConfigurationAndTheVerdictInOneDocument) {
  const finished done = run_json({"--commit"});
  const json_value told(done.out);
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(told["result"].text(), "new");
  EXPECT_EQ(told["verdict"].text(), "committed");
  EXPECT_EQ(told["config_id"].text(), config_id_);
  EXPECT_EQ(told["firmware"].text(), "7.1");
  EXPECT_EQ(told["counts"]["added"].number(), 2);
  EXPECT_EQ(told["counts"]["deleted"].number(), 0);
  EXPECT_EQ(told["bytes"].number(), 16);
}

TEST_F(CycleReport, ListsTheEntries) {
  const json_value told(run_json({}).out);
  ASSERT_EQ(told["entries"].size(), 2);
  const json_value first = told["entries"][0];
  EXPECT_EQ(first["category"].text(), "Wlan");
  EXPECT_EQ(first["key"].text(), "a");
  EXPECT_EQ(first["status"].text(), "added");
  EXPECT_EQ(first["size"].number(), 6);
}

TEST_F(CycleReport, KeepsTheOutputOfTheCommandOutOfTheDocument) {
  const finished done = run_json({"--apply", "echo from the command; exit 7"});
  const json_value told(done.out);
  EXPECT_EQ(done.status, 5);
  EXPECT_EQ(told["apply"].text(), "exit status 7");
  EXPECT_EQ(told["verdict"].text(), "rolled_back");
  EXPECT_TRUE(has(done.err, "from the command"));
}

TEST_F(CycleReport, TellsThatNothingIsNew) {
  ASSERT_EQ(cycle("--commit").status, 0);
  EXPECT_EQ(json_value(run_json({}).out)["result"].text(), "no_update");
}

TEST_F(CycleReport, TellsTheErrorBesideTheEntriesInForce) {
  ASSERT_EQ(cycle("--roll-back").status, 5);
  const finished done = run_json({});
  const json_value told(done.out);
  EXPECT_EQ(done.status, 4);
  EXPECT_EQ(told["result"].text(), "same_as_rolled_back");
  EXPECT_EQ(told["error"]["code"].number(), -13);
  EXPECT_EQ(told["error"]["name"].text(), "ZOT_ERR_SAME_AS_CORRUPTED");
}

TEST_F(CycleReport, TellsAFailedGetOnBothStreams) {
  const finished done = run_zotconf({"cycle", "--index", "unknown", "--json"}, variables());
  const json_value told(done.out);
  EXPECT_EQ(done.status, 1);
  EXPECT_EQ(told["error"]["call"].text(), "get");
  EXPECT_EQ(told["error"]["code"].number(), -16);
  EXPECT_TRUE(has(done.err, told["error"]["text"].text()));
}

TEST_F(CycleReport, HasEveryKeyWhateverHappens) {
  for (const char *const index : {index_, "unknown"}) {
    const json_value told(run_zotconf({"cycle", "--index", index, "--json"}, variables()).out);
    for (const char *const key : {"result", "config_id", "cluster", "firmware", "counts", "bytes",
                                  "entries", "apply", "verdict", "error"}) {
      EXPECT_NO_THROW(static_cast<void>(told[key])) << index;
    }
  }
}

TEST_F(CycleReport, SaysNothingOfWhatKDoesNotState) {
  publish_source();
  const json_value told(run_json({}).out);
  EXPECT_TRUE(told["config_id"].is_null());
  EXPECT_TRUE(told["verdict"].is_null());
}

TEST_F(CycleReport, TellsWhyThereIsNoHandle) {
  environment broken = variables();
  broken["ZOT_PREFIX_CONF_ROOT"] = "/proc/nowhere";
  const finished done = run_zotconf({"cycle", "--index", index_, "--json"}, broken);
  EXPECT_EQ(done.status, 1);
  EXPECT_EQ(json_value(done.out)["error"]["call"].text(), "init");
  EXPECT_TRUE(has(done.err, "zotconf: cannot create a handle: "));
}

TEST_F(CycleReport, PaintsWhatChangedOnATerminalOnly) {
  const std::vector<std::string> args = {"cycle", "--index", index_};
  EXPECT_TRUE(has(run_on_terminal(args, variables()).out, "\x1b[32madded\x1b[0m"));
  EXPECT_FALSE(has(run(args).out, "\x1b"));
}

TEST_F(CycleReport, ShowsTheLogThatWasAskedForBesideTheProgress) {
  const finished quiet = run_on_terminal({"cycle", "--index", index_}, variables());
  EXPECT_FALSE(has(quiet.out, "[zot_"));
  const finished told =
      run_on_terminal({"cycle", "--index", index_, "--log-level", "info"}, variables());
  EXPECT_TRUE(has(told.out, "[zot_conf_get] Start to get new configuration."));
  EXPECT_FALSE(has(told.out, "Verify GPB file"));
}

}  // namespace
}  // namespace zot::test
