// SPDX-License-Identifier: Apache-2.0
// The command that `zotconf verify` names below what it has found.
#include <csignal>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/interrupted.hpp"

namespace zot::test {
namespace {

using words = std::vector<std::string>;

class Remedy : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    commit_source();
  }
  [[nodiscard]] std::string of(const words &more = {}) const {
    words args = {"verify"};
    args.insert(args.end(), more.begin(), more.end());
    return run(args).err;
  }
  [[nodiscard]] std::string of_repair() const { return of({"--repair", "--index", index_}); }
};

TEST_F(Remedy, IsNotNamedForAGoodCache) {
  EXPECT_EQ(of(), "");
}

TEST_F(Remedy, OfDamageIsARepair) {
  write_bytes(conf("config/Zone/z/1"), "broken");
  EXPECT_EQ(of(), "try: zotconf verify --repair --index ID\n");
  EXPECT_EQ(of({"--json"}), "try: zotconf verify --repair --index ID\n");
  EXPECT_EQ(of_repair(), "");
}

TEST_F(Remedy, OfAnInterruptedCommitIsARepair) {
  const interrupted_commit commit(conf_root_);
  EXPECT_EQ(of(), "try: zotconf verify --repair --index ID\n");
}

TEST_F(Remedy, OfAFileThatNobodyHasIsTheNextConfiguration) {
  write_bytes(conf("config/Zone/z/1"), "broken");
  std::filesystem::remove(dir_ / "pub/config/Zone/z/1");
  EXPECT_EQ(of_repair(), "try: zotconf cycle --index ID --commit\n");
}

TEST_F(Remedy, OfADamagedRolledBackKIsToForgetIt) {
  put("Wlan/a", "ssid=b");
  publish_source();
  ASSERT_EQ(cycle("--roll-back").status, 5);
  put("Wlan/a", "ssid=c");
  publish_source();
  write_bytes(conf("knowledge/corrupted.k"), "{");
  EXPECT_EQ(of_repair(), "try: zotconf forget\n");
  EXPECT_EQ(run({"forget"}).status, 0);
  EXPECT_EQ(of(), "");
}

TEST_F(Remedy, IsNotNamedForAFolderOfADeveloper) {
  environment dev = variables();
  dev["ZOT_DEV_PATH"] = conf_root_;
  write_bytes(conf("config/Zone/z/1"), "broken");
  const finished done = run_zotconf({"verify"}, dev);
  EXPECT_EQ(done.status, 7);
  EXPECT_EQ(done.err, "");
}

}  // namespace
}  // namespace zot::test
