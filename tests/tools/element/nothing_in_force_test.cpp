// SPDX-License-Identifier: Apache-2.0
// Commands on a cache that a killed process left without a configuration in force: they must not
// report the previous entries as deleted.
#include <csignal>
#include <functional>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/interrupted.hpp"
#include "tools/element/watch.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

// Two files are in force, and no service runs.
class WithoutService : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    put("Zone/z", "country=DE");
    commit_source();
    service_->stop(SIGTERM);
    service_.reset();
  }
  // What `zotconf watch` prints until its first get has failed.
  [[nodiscard]] std::string watched(const std::vector<std::string> &more = {}) const {
    std::vector<std::string> args = {
        "watch",   "--index", index_,          "--apply-cached-at-start",
        "--apply", command(), "--backoff-min", "1s",
        "--every", "1s"};
    args.insert(args.end(), more.begin(), more.end());
    const background running(args, variables());
    running.wait_for("service_failing");
    return running.out();
  }
  [[nodiscard]] std::string command() const { return "touch '" + (dir_ / "probe") + "'"; }
  [[nodiscard]] bool has_run() const { return exists(dir_ / "probe"); }
};

// The state that an interrupted commit leaves when it has kept nothing of the previous
// configuration.
struct remains {
  const char *name;
  std::function<void(const std::string &conf_root)> leave;
};

void leave_last_k_only(const std::string &conf_root) {
  for (const char *const suffix : {"subsys.k", "subsys.checksum"}) {
    fs::rename(conf_root + "knowledge/" + suffix, conf_root + "knowledge/prev_" + suffix);
  }
}

void leave_new_k_with_old_checksum(const std::string &conf_root) {
  fs::copy_file(conf_root + "knowledge/subsys.checksum",
                conf_root + "knowledge/prev_subsys.checksum");
  fs::rename(conf_root + "knowledge/subsys.k", conf_root + "knowledge/prev_subsys.k");
  write_bytes(conf_root + "knowledge/subsys.k", "{\"clusterId\": \"cluster-1\", \"gpbs\": []}");
}

void leave_half_of_the_files(const std::string &conf_root) {
  leave_last_k_only(conf_root);
  fs::copy_file(conf_root + "knowledge/prev_subsys.k", conf_root + "knowledge/subsys.k");
  fs::copy_file(conf_root + "knowledge/prev_subsys.checksum",
                conf_root + "knowledge/subsys.checksum");
  fs::remove_all(conf_root + "config/Zone");
}

class NothingInForce : public WithoutService, public testing::WithParamInterface<remains> {
 protected:
  void SetUp() override {
    WithoutService::SetUp();
    GetParam().leave(conf_root_);
  }
};

TEST_P(NothingInForce, IsHandedToNoCommandByWatch) {
  const std::string out = watched({"--json"});
  EXPECT_FALSE(has_run());
  EXPECT_TRUE(
      has(out, "\"event\":\"applied_cached\",\"text\":\"No cached data now\",\"status\":-12"))
      << out;
}

TEST_P(NothingInForce, IsNoCachedConfigurationToCycle) {
  const finished done =
      run({"cycle", "--index", index_, "--want", "cached", "--out", dir_ / "out"});
  EXPECT_EQ(done.status, 1);
  EXPECT_EQ(done.out, "");
  EXPECT_TRUE(has(done.err, "No cached data now (-12)")) << done.err;
  EXPECT_FALSE(exists(dir_ / "out"));
}

TEST_P(NothingInForce, IsHandedToNoCommandByCycle) {
  EXPECT_EQ(run({"cycle", "--index", index_, "--apply", command()}).status, 1);
  EXPECT_FALSE(has_run());
}

INSTANTIATE_TEST_SUITE_P(Remains, NothingInForce,
                         testing::Values(remains{"LastKOnly", leave_last_k_only},
                                         remains{"NewKWithOldChecksum",
                                                 leave_new_k_with_old_checksum},
                                         remains{"HalfOfTheFiles", leave_half_of_the_files}),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_F(WithoutService, WatchHandsOverWhatAnInterruptedCommitKept) {
  const interrupted_commit commit(conf_root_);
  commit.rotate_k("{");
  commit.keep_files();
  commit.write_file("Wlan/a/2", "half");
  EXPECT_TRUE(has(watched({"--json"}), "\"text\":\"2 entries, exit status 0\""));
  EXPECT_TRUE(has_run());
  EXPECT_FALSE(exists(conf("undo")));
}

// The configuration in force has no entry of the category; the previous one had.
TEST_F(WithoutService, WatchHandsOverNoListThatOnlyDeletes) {
  serve();
  fs::remove(dir_ / "source/Zone/z");
  commit_source();
  service_->stop(SIGTERM);
  service_.reset();
  const std::string out = watched({"--json", "--categories", "Zone"});
  EXPECT_FALSE(has_run());
  EXPECT_TRUE(has(out, "no entry is in force, CMD was not run\",\"status\":-12")) << out;
}

}  // namespace
}  // namespace zot::test
