// SPDX-License-Identifier: Apache-2.0
// What the program adds to the library's words: on an element that has nothing yet, and where an
// answer could not be stored.
#include <gtest/gtest.h>
#include <httplib.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/tools/support/cached_element.hpp"
#include "tests/tools/support/json_value.hpp"

namespace zot::test {
namespace {

namespace fs = std::filesystem;

using words = std::vector<std::string>;

const std::string nothing_yet = "the element has no configuration yet";

class NewElement : public CachedElement {
 protected:
  void SetUp() override {
    put("Wlan/a", "ssid=a");
    publish_source();
  }
};

TEST_F(NewElement, IsNamedBesideTheErrorThatTheLibraryLogs) {
  serve();
  const finished done = run({"cycle", "--index", index_, "--commit", "--log-level", "error"});
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.err,
            "[zot_priv_verify_k_file] [zot_priv_verify_k_file]: No such file or directory\n"
            "zotconf: this K is the one in force: " +
                nothing_yet + "\n");
  EXPECT_EQ(run({"cycle", "--index", index_, "--log-level", "error"}).err, "");
}

TEST_F(NewElement, IsNamedWhereItsFirstGetFails) {
  const finished done = run({"cycle", "--index", index_});
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(done.err.ends_with(" (-6): " + nothing_yet + "\ntry: zotconf explain -6\n"))
      << done.err;
}

TEST_F(NewElement, IsNotNamedOnceItHasAConfiguration) {
  commit_source();
  service_->stop(SIGTERM);
  const finished done = run({"cycle", "--index", index_});
  EXPECT_EQ(done.status, 1);
  EXPECT_FALSE(has(done.err, nothing_yet)) << done.err;
}

TEST_F(NewElement, IsNamedByEveryCommandThatLooksAtIt) {
  EXPECT_TRUE(has(run({"status"}).out, "nothing is in force, " + nothing_yet + "\n"));
  EXPECT_TRUE(run({"verify"}).err.starts_with("zotconf: " + nothing_yet + ": no K in "));
  background running({"watch", "--index", index_, "--apply", "true"}, variables());
  running.wait_for("starting: AP 001122334455, every 30s: " + nothing_yet + "\n");
  running.send(SIGTERM);
  EXPECT_EQ(running.wait(), 0);
}

TEST_F(NewElement, IsNotTakenForOneWhoseConfigurationIsDamaged) {
  commit_source();
  write_bytes(conf("knowledge/subsys.k"), "{");
  EXPECT_FALSE(has(run({"status"}).out, nothing_yet));
}

// A service whose answers somebody takes away from the scratch folder.
class LostAnswer : public CachedElement {
 protected:
  void SetUp() override {
    server_.Get(R"(/file/.*\.checksum)",
                [this](const httplib::Request & /*asked*/, httplib::Response &response) {
                  if (takes_folder_away_) {
                    fs::remove_all(dir_ / "device/tmp/zot");
                  }
                  response.set_content(answer_, "text/plain");
                });
    port_ = server_.bind_to_any_port("127.0.0.1");
    loop_ = std::thread([this] { server_.listen_after_bind(); });
  }
  void TearDown() override {
    server_.stop();
    loop_.join();
  }
  [[nodiscard]] environment at_service() const {
    environment all = variables();
    all["ZOT_REMOTE_PORT"] = std::to_string(port_);
    return all;
  }
  [[nodiscard]] finished get(const words &more = {}) const {
    words args = {"cycle", "--index", index_};
    args.insert(args.end(), more.begin(), more.end());
    return run_zotconf(args, at_service());
  }
  [[nodiscard]] std::string explained() const {
    return "http return code = 200 (-1): the service responded, but the response could not be "
           "stored "
           "in " +
           (dir_ / "device/tmp/zot");
  }

  bool takes_folder_away_ = false;
  std::string answer_ = std::string(64, 'a');
  int port_ = 0;
  httplib::Server server_;
  std::thread loop_;
};

TEST_F(LostAnswer, IsExplainedByTheFolderThatIsGone) {
  takes_folder_away_ = true;
  const finished done = get();
  EXPECT_EQ(done.status, 1);
  EXPECT_TRUE(has(done.err, explained() + ": No such file or directory; " + nothing_yet + "\n"))
      << done.err;
}

TEST_F(LostAnswer, IsExplainedWhenTheFolderIsInOrder) {
  answer_ = "";
  EXPECT_TRUE(has(
      get().err, explained() + ": the response was empty, or another program removed files there"));
}

TEST_F(LostAnswer, KeepsTheTextOfTheLibraryInJson) {
  answer_ = "";
  const json_value told(get({"--json"}).out);
  EXPECT_TRUE(told["error"]["text"].text().ends_with("http return code = 200"));
}

TEST_F(LostAnswer, IsExplainedByWatch) {
  answer_ = "";
  background running({"watch", "--index", index_, "--apply", "true"}, at_service());
  running.wait_for("http return code = 200: the service responded, but the response could not be");
  running.send(SIGTERM);
  EXPECT_EQ(running.wait(), 0);
}

// In a folder with the sticky bit nobody replaces what another user has fetched. Without root, the
// file and the folder are the user's own, and can be replaced.
TEST_F(LostAnswer, IsExplainedByTheFileOfAnotherUserAlone) {
  const bool is_root = ::geteuid() == 0;
  const std::string scratch = dir_ / "device/tmp/zot";
  write_bytes(scratch + "/subsys.checksum", "of somebody else");
  fs::create_directories(conf_root_);
  ASSERT_TRUE(!is_root || (::chown(scratch.c_str(), 1, 1) == 0 &&
                           ::chown((scratch + "/subsys.checksum").c_str(), 1, 1) == 0));
  fs::permissions(scratch, fs::perms::all | fs::perms::sticky_bit);
  fs::permissions(dir_.path(), fs::perms::all);
  for (const auto &entry : fs::recursive_directory_iterator(dir_ / "device/writable")) {
    fs::permissions(entry.path(), fs::perms::all);
  }
  const finished done = run_zotconf_as_user({"cycle", "--index", index_}, at_service());
  EXPECT_EQ(has(done.err, explained() + ": subsys.checksum in it belongs to another user"), is_root)
      << done.err;
}

}  // namespace
}  // namespace zot::test
