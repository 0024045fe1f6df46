// SPDX-License-Identifier: Apache-2.0
#include "tools/cache/forget.hpp"

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/interrupted.hpp"
#include "tests/tools/support/json_value.hpp"

namespace zot::test {
namespace {

constexpr int done_well = 0;
constexpr int failed = 1;
constexpr int same_as_refused = 4;
constexpr const char *refused_id = "00000000-0000-0000-0000-000000000002";

// One configuration is in force. The service offers another one, which was rolled back.
class Forget : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    commit_source();
    put("Wlan/a", "ssid=b");
    publish_source({"--config-id", refused_id});
    ASSERT_EQ(cycle("--roll-back").status, 5);
  }
  [[nodiscard]] finished forget(const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {"forget"};
    args.insert(args.end(), more.begin(), more.end());
    return run(args);
  }
  [[nodiscard]] bool is_refused() const {
    return exists(conf("knowledge/corrupted.k")) && exists(conf("knowledge/corrupted.checksum"));
  }
};

TEST_F(Forget, HasTheSameConfigurationOfferedAgain) {
  ASSERT_EQ(cycle("--commit").status, same_as_refused);
  const finished done = forget();
  EXPECT_EQ(done.status, done_well) << done.err;
  EXPECT_EQ(done.out, "forgotten: config ID " + std::string(refused_id) +
                          "; while the service offers it, the next get returns it as new\n");
  EXPECT_EQ(done.err, "");
  EXPECT_FALSE(exists(conf("knowledge/corrupted.k")));
  EXPECT_FALSE(exists(conf("knowledge/corrupted.checksum")));
  EXPECT_EQ(cycle("--commit").status, done_well);
  EXPECT_EQ(read_bytes(conf("config/Wlan/a/2")), "ssid=b");
}

TEST_F(Forget, LeavesWhatIsInForce) {
  ASSERT_EQ(forget().status, done_well);
  EXPECT_EQ(run({"verify"}).status, done_well);
  EXPECT_EQ(read_bytes(conf("config/Wlan/a/1")), "ssid=a");
}

TEST_F(Forget, NeedsNoService) {
  service_->stop(SIGTERM);
  service_.reset();
  EXPECT_EQ(forget().status, done_well);
  EXPECT_FALSE(is_refused());
}

TEST_F(Forget, TellsAsJsonWhatItForgot) {
  const json_value told(forget({"--json"}).out);
  EXPECT_EQ(told["conf_root"].text(), conf_root_);
  EXPECT_EQ(told["forgotten"]["config_id"].text(), refused_id);
  EXPECT_TRUE(json_value(forget({"--json"}).out)["forgotten"].is_null());
}

TEST_F(Forget, SaysThatNothingIsRefused) {
  ASSERT_EQ(forget().status, done_well);
  const finished again = forget();
  EXPECT_EQ(again.status, done_well);
  EXPECT_EQ(again.out, "no refused configuration in " + conf_root_ + "\n");
}

TEST_F(Forget, ForgetsADamagedOneToo) {
  write_bytes(conf("knowledge/corrupted.k"), "{");
  EXPECT_EQ(forget().status, done_well);
  EXPECT_FALSE(exists(conf("knowledge/corrupted.k")));
}

TEST_F(Forget, SaysSoWhereThereIsNoCache) {
  std::filesystem::remove_all(dir_ / "device");
  const finished done = forget();
  EXPECT_EQ(done.status, done_well);
  EXPECT_EQ(done.out, "no refused configuration in " + conf_root_ + "\n");
  EXPECT_FALSE(exists(dir_ / "device"));
}

TEST_F(Forget, FailsWhileAnotherProcessWorksInTheCache) {
  const held_lock other(conf_root_);
  const finished done = forget();
  EXPECT_EQ(done.status, failed);
  EXPECT_EQ(done.err, "zotconf: cannot lock " + conf_root_ + ": another process holds the lock\n");
  EXPECT_TRUE(is_refused());
}

// The next start restores the refused K that the commit had removed.
TEST_F(Forget, FailsAfterAnInterruptedCommit) {
  const interrupted_commit commit(conf_root_);
  const finished done = forget();
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, "a commit was interrupted")) << done.err;
  EXPECT_TRUE(done.err.ends_with("\ntry: zotconf verify --repair --index ID\n")) << done.err;
}

TEST_F(Forget, DoesNothingInDevMode) {
  environment dev = variables();
  dev["ZOT_DEV_PATH"] = conf_root_;
  const finished done = run_zotconf({"forget"}, dev);
  EXPECT_EQ(done.status, failed);
  EXPECT_TRUE(has(done.err, "dev mode: ")) << done.err;
  EXPECT_TRUE(is_refused());
}

TEST_F(Forget, IsNamedWhereARollBackIsTold) {
  const std::string takes_back = "zotconf forget";
  EXPECT_TRUE(has(cycle("--commit").out, takes_back));
  EXPECT_TRUE(has(run({"status"}).out, takes_back));
  EXPECT_TRUE(has(run({"explain", "--", "-13"}).out, takes_back));
}

}  // namespace
}  // namespace zot::test
