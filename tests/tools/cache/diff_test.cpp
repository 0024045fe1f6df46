// SPDX-License-Identifier: Apache-2.0
#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/terminal.hpp"

namespace zot::test {
namespace {

// From `old` to `pub`: Ap/x is added, Wlan/a modified, Zone/z deleted and Wlan/b unchanged.
class Diff : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Wlan/b", "ssid=b");
    put("Zone/z", "country=DE");
    publish_source();
    std::filesystem::copy(dir_ / "pub", old_, std::filesystem::copy_options::recursive);
    put("Wlan/a", "ssid=other");
    put("Ap/x", "model=x");
    std::filesystem::remove(dir_ / "source/Zone/z");
    publish_source();
  }
  [[nodiscard]] finished compare(const std::vector<std::string> &more) const {
    std::vector<std::string> args = {"diff", old_, new_};
    args.insert(args.end(), more.begin(), more.end());
    return run(args);
  }

  std::string old_ = dir_ / "old";
  std::string new_ = dir_ / "pub";
};

TEST_F(Diff, ListsWhatChanges) {
  const finished done = compare({});
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.err, "");
  EXPECT_EQ(done.out,
            "STATUS    CATEGORY  KEY  VERSION     SIZE\n"
            "added     Ap        x     - -> 1   - -> 7\n"
            "modified  Wlan      a     1 -> 2  6 -> 10\n"
            "deleted   Zone      z     1 -> -  10 -> -\n"
            "1 added, 1 modified, 1 deleted, 1 unchanged; 22 -> 23 bytes\n");
}

TEST_F(Diff, ListsUnchangedEntriesOnDemand) {
  EXPECT_TRUE(has(compare({"--all"}).out, "unchanged  Wlan      b          1        6\n"));
}

TEST_F(Diff, CountsByCategory) {
  EXPECT_EQ(compare({"--stat"}).out,
            "CATEGORY  ADDED  MODIFIED  DELETED  UNCHANGED  BYTES BEFORE  BYTES AFTER\n"
            "Ap            1         0        0          0             0            7\n"
            "Wlan          0         1        0          1            12           16\n"
            "Zone          0         0        1          0            10            0\n"
            "total         1         1        1          1            22           23\n");
}

TEST_F(Diff, TakesCategoriesAndAKeyPattern) {
  EXPECT_EQ(compare({"--category", "Wlan,Zone", "--key", "[ab]", "--all"}).out,
            "STATUS     CATEGORY  KEY  VERSION     SIZE\n"
            "modified   Wlan      a     1 -> 2  6 -> 10\n"
            "unchanged  Wlan      b          1        6\n"
            "0 added, 1 modified, 0 deleted, 1 unchanged; 12 -> 16 bytes\n");
}

TEST_F(Diff, TellsADifferenceByItsExitStatusOnDemand) {
  EXPECT_EQ(compare({"--exit-code"}).status, 8);
  EXPECT_EQ(compare({"--exit-code", "--key", "b"}).status, 0);
  EXPECT_EQ(run({"diff", new_, new_, "--exit-code"}).status, 0);
}

TEST_F(Diff, CallsEqualEntriesOfAnotherClusterModified) {
  write_bytes(dir_ / "here.k", R"({"clusterId": "c1", "gpbs": [
      {"path": "/Wlan/a/3", "size": 6, "checksum": "00"}]})");
  write_bytes(dir_ / "there.k", R"({"clusterId": "c2", "gpbs": [
      {"path": "/Wlan/a/3", "size": 6, "checksum": "00"}]})");
  EXPECT_EQ(run({"diff", dir_ / "here.k", dir_ / "there.k"}).out,
            "other cluster: \"c1\" -> \"c2\"; equal entries count as modified\n"
            "STATUS    CATEGORY  KEY  VERSION  SIZE\n"
            "modified  Wlan      a          3     6\n"
            "0 added, 1 modified, 0 deleted, 0 unchanged; 6 -> 6 bytes\n");
}

TEST_F(Diff, SaysWhatTheNextCycleSays) {
  commit_source();
  put("Wlan/b", "ssid=bb");
  put("Vpn/v", "peer=v");
  publish_source();
  const finished foreseen = run({"diff", "current", dir_ / "pub", "--json"});
  const json_value entries = json_value(foreseen.out)["entries"];
  const std::string got = run({"cycle", "--index", index_}).out;
  ASSERT_EQ(entries.size(), 2);
  EXPECT_EQ(entries[0]["key"].text(), "b");
  EXPECT_EQ(entries[1]["key"].text(), "v");
  EXPECT_TRUE(has(got, "2 entries, 1 added, 1 modified, 13 bytes")) << got;
}

TEST_F(Diff, ComparesSlots) {
  commit_source();
  put("Wlan/b", "ssid=bb");
  commit_source();
  EXPECT_TRUE(has(run({"diff", "last", "current"}).out, "modified  Wlan      b     1 -> 2"));
}

TEST_F(Diff, WritesJson) {
  const json_value found(compare({"--json"}).out);
  EXPECT_EQ(found["from"]["cluster"].text(), "cluster-1");
  EXPECT_EQ(found["to"]["k"].text(), published(".k"));
  EXPECT_FALSE(found["other_cluster"].flag());
  EXPECT_TRUE(found["different"].flag());
  ASSERT_EQ(found["entries"].size(), 3);
  const json_value added = found["entries"][0];
  EXPECT_EQ(added["status"].text(), "added");
  EXPECT_EQ(added["category"].text(), "Ap");
  EXPECT_EQ(added["key"].text(), "x");
  EXPECT_TRUE(added["old_version"].is_null());
  EXPECT_EQ(added["new_version"].number(), 1);
  EXPECT_TRUE(added["old_size"].is_null());
  EXPECT_EQ(added["new_size"].number(), 7);
  ASSERT_EQ(found["categories"].size(), 3);
  const json_value wlan = found["categories"][1];
  EXPECT_EQ(wlan["category"].text(), "Wlan");
  EXPECT_EQ(wlan["modified"].number(), 1);
  EXPECT_EQ(wlan["unchanged"].number(), 1);
  EXPECT_EQ(wlan["bytes_before"].number(), 12);
  EXPECT_EQ(wlan["bytes_after"].number(), 16);
  EXPECT_EQ(found["total"]["deleted"].number(), 1);
  EXPECT_EQ(found["total"]["added"].number(), 1);
}

TEST_F(Diff, FailsOnADamagedK) {
  commit_source();
  write_bytes(conf("knowledge/subsys.checksum"), "short");
  const finished done = run({"diff", "current", new_});
  EXPECT_EQ(done.status, 1);
  EXPECT_EQ(done.out, "");
  EXPECT_TRUE(has(done.err, "unable to get correct checksum of K")) << done.err;
}

TEST_F(Diff, WantsTwoK) {
  EXPECT_EQ(run({"diff", new_}).status, 2);
}

TEST_F(Diff, HasColoursOnATerminalOnly) {
  const std::vector<std::string> args = {"diff", old_, new_};
  EXPECT_TRUE(has(run_on_terminal(args).out, "\x1b[32madded\x1b[0m"));
  EXPECT_FALSE(has(run_on_terminal(args, {{"NO_COLOR", "1"}}).out, "\x1b"));
  EXPECT_FALSE(has(run(args).out, "\x1b"));
}

}  // namespace
}  // namespace zot::test
