// SPDX-License-Identifier: Apache-2.0
// A cache and a publication folder that version 1.0.0 wrote.
#include <filesystem>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

const std::string data = ZOTCONF_DATA "/cache-1.0.0/";

class EarlierVersion : public CachedElement {
 protected:
  void take_over(const std::string &cache) const {
    fs::create_directories(dir_ / "device/writable");
    fs::copy(data + cache, dir_ / "device/writable/zot", fs::copy_options::recursive);
  }
  // The publication folder, with the K of a cache in place of its own if one is named.
  void serve_published(const std::string &k = "") {
    fs::copy(data + "published", dir_ / "pub", fs::copy_options::recursive);
    if (!k.empty()) {
      write_bytes(published(".k"), read_bytes(data + k + ".k"));
      write_bytes(published(".checksum"), read_bytes(data + k + ".checksum"));
    }
    serve();
  }
  [[nodiscard]] json_value json(std::vector<std::string> args, int status) const {
    args.emplace_back("--json");
    const finished done = run(args);
    EXPECT_EQ(done.status, status) << done.out << done.err;
    return json_value(done.out);
  }
  [[nodiscard]] json_value get(const std::vector<std::string> &more, int status) const {
    std::vector<std::string> args = {"cycle", "--index", index_};
    args.insert(args.end(), more.begin(), more.end());
    return json(args, status);
  }
  void expect_second_in_force() const {
    const json_value cached = get({"--want", "cached", "--out", dir_ / "files"}, 0);
    EXPECT_EQ(cached["config_id"].text(), "00000000-0000-4000-8000-000000000002");
    EXPECT_EQ(read_bytes(dir_ / "files/Ap/lobby"), "channel=36");
    EXPECT_EQ(read_bytes(dir_ / "files/Vlan/20"), "name=voice");
    EXPECT_EQ(read_bytes(dir_ / "files/Wlan/guest"), "ssid=guest");
    EXPECT_EQ(read_bytes(dir_ / "files/Wlan/office"), "ssid=headquarters");
    EXPECT_EQ(tree(dir_ / "files").size(), 4U);
  }
  void expect_fourth_in_force() const {
    EXPECT_EQ(run({"verify"}).status, 0);
    EXPECT_EQ(get({"--want", "cached", "--out", dir_ / "fourth"}, 0)["config_id"].text(),
              "00000000-0000-4000-8000-000000000004");
    EXPECT_EQ(read_bytes(dir_ / "fourth/Wlan/guest"), "ssid=visitors");
  }
};

TEST_F(EarlierVersion, CommittedConfigurationIsInForceWithoutAService) {
  take_over("committed");
  EXPECT_EQ(json({"verify"}, 0)["result"].text(), "clean");
  expect_second_in_force();
  const json_value counts = get({"--want", "cached"}, 0)["counts"];
  EXPECT_EQ(counts["added"].number(), 1);
  EXPECT_EQ(counts["modified"].number(), 1);
  EXPECT_EQ(counts["deleted"].number(), 1);
  EXPECT_EQ(counts["unchanged"].number(), 2);
}

TEST_F(EarlierVersion, CommittedConfigurationIsNoNewsWhenItIsPublished) {
  take_over("committed");
  serve_published("committed/knowledge/subsys");
  EXPECT_EQ(get({}, 3)["result"].text(), "no_update");
}

TEST_F(EarlierVersion, CommittedConfigurationIsUpdated) {
  take_over("committed");
  serve_published();
  const json_value update = get({"--commit"}, 0);
  EXPECT_EQ(update["verdict"].text(), "committed");
  EXPECT_EQ(update["counts"]["modified"].number(), 1);
  EXPECT_EQ(update["entries"].size(), 1);
  expect_fourth_in_force();
}

TEST_F(EarlierVersion, CommittedConfigurationStaysAfterARollback) {
  take_over("committed");
  serve_published();
  EXPECT_EQ(get({"--roll-back"}, 5)["verdict"].text(), "rolled_back");
  EXPECT_EQ(get({}, 4)["result"].text(), "same_as_rolled_back");
  expect_second_in_force();
}

TEST_F(EarlierVersion, RefusedConfigurationStaysRefusedAndTheNextOneIsTaken) {
  take_over("rolled-back");
  serve_published("rolled-back/knowledge/corrupted");
  EXPECT_EQ(get({"--commit"}, 4)["result"].text(), "same_as_rolled_back");
  expect_second_in_force();
  const std::string latest = data + "published/file/knowledge/AP/001122334455/latest/001122334455";
  for (const std::string suffix : {".k", ".checksum"}) {
    write_bytes(published(suffix), read_bytes(latest + suffix));
  }
  EXPECT_EQ(get({"--commit"}, 0)["verdict"].text(), "committed");
  expect_fourth_in_force();
}

TEST_F(EarlierVersion, InterruptedCommitLeavesNothingInForceUntilTheNextCommit) {
  take_over("interrupted");
  EXPECT_EQ(json({"verify"}, 7)["result"].text(), "damaged");
  EXPECT_EQ(json({"status"}, 0)["commit"]["state"].text(), "none");
  EXPECT_EQ(get({"--want", "cached"}, 1)["error"]["name"].text(), "ZOT_ERR_NO_CACHE");
  serve_published();
  const json_value update = get({"--commit"}, 0);
  EXPECT_EQ(update["counts"]["added"].number(), 4);
  expect_fourth_in_force();
}

TEST_F(EarlierVersion, PublicationKeepsItsVersions) {
  fs::copy(data + "published", dir_ / "pub", fs::copy_options::recursive);
  put("Ap/lobby", "channel=36");
  put("Vlan/20", "name=voice");
  put("Wlan/guest", "ssid=guest");
  put("Wlan/office", "ssid=headquarters");
  const finished done = publish(dir_ / "source", dir_ / "pub", {"--json"});
  ASSERT_EQ(done.status, 0) << done.err;
  EXPECT_EQ(json_value(done.out)["same"].number(), 3);
  EXPECT_EQ(json_value(done.out)["written"].number(), 0);
  EXPECT_TRUE(has(read_bytes(published(".k")), "/Wlan/guest/1"));
}

}  // namespace
}  // namespace zot::test
