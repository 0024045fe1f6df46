// SPDX-License-Identifier: Apache-2.0
#include "tools/service/background.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <regex>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"
#include "utilities/owner.hpp"

namespace zot::test {
namespace {

const std::string checksum_url = "/file/knowledge/AP/001122334455/latest/001122334455.checksum";

class Background : public testing::Test {
 protected:
  Background() {
    write_bytes(dir_ / "source/Wlan/a", "ssid=a");
    if (publish(dir_ / "source", publication_).status != 0) {
      throw std::runtime_error("publish failed");
    }
  }
  ~Background() override { stop(); }

  [[nodiscard]] finished serve(std::vector<std::string> more) const {
    more.insert(more.begin(),
                {"serve", publication_, "--port", "0", "--background", "--pid-file", pid_file_});
    return run_zotconf(more);
  }
  [[nodiscard]] pid_t pid() const { return std::stoi(read_bytes(pid_file_)); }
  void stop() const {
    if (exists(pid_file_)) {
      ::kill(pid(), SIGTERM);
      wait_until([this] { return !exists(pid_file_); }, "the end of the service");
    }
  }
  [[nodiscard]] static int port_in(const std::string &out) {
    return std::stoi(out.substr(out.find(':') + 1));
  }

  temp_dir dir_;
  std::string publication_ = dir_ / "pub";
  std::string pid_file_ = dir_ / "serve.pid";
};

TEST_F(Background, ReturnsOnceItListens) {
  const finished started = serve({});
  EXPECT_EQ(started.status, 0);
  EXPECT_EQ(started.err, "");
  const auto answer = httplib::Client("127.0.0.1", port_in(started.out)).Get(checksum_url);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
}

TEST_F(Background, PrintsWhereItListensAndHowToStopIt) {
  const finished started = serve({});
  EXPECT_TRUE(std::regex_match(started.out, std::regex("listening on 127\\.0\\.0\\.1:\\d+\n"
                                                       "to stop: kill " +
                                                       std::to_string(pid()) + "\n")))
      << started.out;
}

TEST_F(Background, PrintsItsNumberAsJson) {
  const json_value started(serve({"--json"}).out);
  EXPECT_EQ(started["listening"]["host"].text(), "127.0.0.1");
  EXPECT_EQ(started["listening"]["pid"].number(), pid());
}

TEST_F(Background, HasASessionOfItsOwnAndNoStreamOfItsCaller) {
  ASSERT_EQ(serve({}).status, 0);
  EXPECT_EQ(::getsid(pid()), pid());
  for (const std::string stream : {"0", "1", "2"}) {
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(pid()) + "/fd/" + stream),
              "/dev/null");
  }
}

TEST_F(Background, KeepsNoFileOfItsCallerOpen) {
  const std::string lock = dir_ / "lock";
  const std::string command = "exec 9>'" + lock + "'; '" + std::string(ZOTCONF_PROGRAM) +
                              "' serve '" + publication_ + "' --port 0 --background --pid-file '" +
                              pid_file_ + "' >'" + (dir_ / "out") + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const std::string open_files = "/proc/" + std::to_string(pid()) + "/fd";
  for (const auto &entry : std::filesystem::directory_iterator(open_files)) {
    std::error_code closed_meanwhile;
    EXPECT_NE(std::filesystem::read_symlink(entry.path(), closed_meanwhile), lock);
  }
}

TEST_F(Background, AppendsTheLinesOfRequestsToALog) {
  const std::string log = dir_ / "serve.log";
  write_bytes(log, "before\n");
  const int port = port_in(serve({"--log", log}).out);
  ASSERT_TRUE(httplib::Client("127.0.0.1", port).Get("/asked"));
  wait_until([&] { return count_of("\n", read_bytes(log)) == 2; }, "a line of the log");
  EXPECT_TRUE(read_bytes(log).starts_with("before\n"));
  EXPECT_NE(read_bytes(log).find("GET /asked 404 "), std::string::npos);
}

TEST_F(Background, FailsWithTheReasonWhenItCannotListen) {
  const int port = port_in(serve({}).out);
  const finished second =
      run_zotconf({"serve", publication_, "--port", std::to_string(port), "--background"});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.out, "");
  EXPECT_NE(second.err.find("Address already in use"), std::string::npos) << second.err;
}

TEST_F(Background, FailsWhenItsLogCannotBeWritten) {
  const finished started = serve({"--log", dir_ / "none/serve.log"});
  EXPECT_EQ(started.status, 1);
  EXPECT_NE(started.err.find("none/serve.log"), std::string::npos) << started.err;
  EXPECT_FALSE(exists(pid_file_));
}

TEST_F(Background, RemovesThePidFileWhenItStops) {
  ASSERT_EQ(serve({}).status, 0);
  const pid_t running = pid();
  ::kill(running, SIGINT);
  wait_until([this] { return !exists(pid_file_); }, "the end of the service");
}

TEST_F(Background, RefusesThePidFileOfARunningService) {
  ASSERT_EQ(serve({}).status, 0);
  const std::string running = std::to_string(pid());
  const finished started = serve({});
  EXPECT_EQ(started.status, 1);
  EXPECT_NE(started.err.find("a running service; stop it with: kill " + running + "\n"),
            std::string::npos)
      << started.err;
  EXPECT_EQ(read_bytes(pid_file_), running + "\n");
}

TEST_F(Background, NamesNoProcessForAPidFileThatIsLockedAndStillEmpty) {
  const descriptor locked(::open(pid_file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
  ASSERT_EQ(::flock(locked.get(), LOCK_EX), 0);
  const finished started = serve({});
  EXPECT_EQ(started.status, 1);
  EXPECT_TRUE(started.err.ends_with(" belongs to a running service\n")) << started.err;
  std::filesystem::remove(pid_file_);
}

// After a restart of the machine, an unrelated process may have the number of an old service.
TEST_F(Background, ReplacesAPidFileThatNamesAnUnrelatedProcess) {
  write_bytes(pid_file_, std::to_string(::getpid()) + "\n");
  EXPECT_EQ(serve({}).status, 0);
  EXPECT_NE(pid(), ::getpid());
}

TEST_F(Background, LeavesNoPidFileWhenItCannotListen) {
  const int port = port_in(serve({}).out);
  const std::string other = dir_ / "other.pid";
  EXPECT_EQ(run_zotconf({"serve", publication_, "--port", std::to_string(port), "--background",
                         "--pid-file", other})
                .status,
            1);
  EXPECT_FALSE(exists(other));
}

TEST_F(Background, ReplacesThePidFileOfAProcessThatIsGone) {
  serving gone(publication_);
  const pid_t before = gone.pid();
  ASSERT_EQ(gone.stop(SIGTERM), 0);
  write_bytes(pid_file_, std::to_string(before) + "\n");
  EXPECT_EQ(serve({}).status, 0);
  EXPECT_NE(pid(), before);
}

TEST_F(Background, ReplacesAnEmptyPidFile) {
  write_bytes(pid_file_, "");
  EXPECT_EQ(serve({}).status, 0);
}

TEST_F(Background, LeavesAFileAloneThatIsNoPidFile) {
  write_bytes(pid_file_, "something else");
  const finished started = serve({});
  EXPECT_EQ(started.status, 1);
  EXPECT_NE(started.err.find("not a pid file"), std::string::npos) << started.err;
  EXPECT_EQ(read_bytes(pid_file_), "something else");
  std::filesystem::remove(pid_file_);
}

TEST_F(Background, LeavesThePidFileOfASuccessorAlone) {
  serving service(publication_, {"--pid-file", pid_file_});
  EXPECT_EQ(pid(), service.pid());
  const std::string other = std::to_string(::getpid()) + "\n";
  write_bytes(pid_file_, other);
  EXPECT_EQ(service.stop(SIGTERM), 0);
  EXPECT_EQ(read_bytes(pid_file_), other);
  std::filesystem::remove(pid_file_);
}

}  // namespace
}  // namespace zot::test
