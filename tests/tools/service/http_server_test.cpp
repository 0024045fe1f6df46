// SPDX-License-Identifier: Apache-2.0
#include "tools/service/http_server.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "tests/tools/support/json_value.hpp"
#include "tests/tools/support/process.hpp"
#include "tests/tools/support/raw_client.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

const std::string checksum_url = "/file/knowledge/AP/001122334455/latest/001122334455.checksum";
const std::string get_checksum = "GET " + checksum_url + " HTTP/1.1\r\nHost: x\r\n";
constexpr std::size_t large = std::size_t{24} << 20;
constexpr std::size_t longest_body = std::size_t{64} << 20;

class HttpServer : public testing::Test {
 protected:
  HttpServer() {
    write_bytes(dir_ / "source/Wlan/a", "ssid=a");
    if (publish(dir_ / "source", publication_).status != 0) {
      throw std::runtime_error("publish failed");
    }
    service_ = std::make_unique<serving>(publication_, std::vector<std::string>{"--json"});
  }

  [[nodiscard]] raw_client client() const { return raw_client(service_->port()); }
  // Returns how long a new client waits for its response.
  [[nodiscard]] static clock::duration time_of_answer(std::uint16_t port) {
    const auto begin = clock::now();
    raw_client asking(port);
    asking.send(get_checksum + "Connection: close\r\n\r\n");
    EXPECT_TRUE(asking.read_all().starts_with("HTTP/1.1 200 "));
    return clock::now() - begin;
  }
  [[nodiscard]] clock::duration time_of_answer() const { return time_of_answer(service_->port()); }
  // Requests an archive of incompressible data, which takes time to make.
  [[nodiscard]] raw_client client_for_archive() const {
    const std::string path = publication_ + "/config/Vlan/large/1";
    if (!exists(path)) {
      write_bytes(path, noise(large));
    }
    const std::string body = R"({"files": ["/config/Vlan/large/1"]})";
    raw_client asking = client();
    asking.send("POST /tgz HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\n\r\n" + body);
    return asking;
  }
  // Returns the log line of the nth request after the first.
  [[nodiscard]] json_value line(size_t number) const {
    const auto is_there = [&] { return count_of("\n", service_->output()) > number + 1; };
    wait_until(is_there, "a line of the log");
    std::istringstream lines(service_->output());
    std::string text;
    for (size_t i = 0; i < number + 2; ++i) {
      std::getline(lines, text);
    }
    return json_value(text);
  }

  temp_dir dir_;
  std::string publication_ = dir_ / "pub";
  std::unique_ptr<serving> service_;
};

// Raises the descriptor limit of this process as far as it may. Returns the limit.
rlim_t raised_descriptor_limit() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
  return limit.rlim_cur;
}

std::vector<raw_client> crowd(std::uint16_t port, size_t size) {
  std::vector<raw_client> clients;
  for (size_t i = 0; i < size; ++i) {
    clients.emplace_back(port);
  }
  return clients;
}

TEST_F(HttpServer, AnswersAtOnceBesideThousandsOfIdleAndHundredsOfSlowClients) {
  // Where the system allows fewer descriptors, the crowd is smaller, and still more than there are
  // threads. The service accepts connections for three quarters of its own.
  const rlim_t allowed = raised_descriptor_limit();
  ASSERT_GE(allowed, 1024U);
  std::vector<raw_client> slow = crowd(service_->port(), 200);
  const std::vector<raw_client> idle =
      crowd(service_->port(), static_cast<size_t>(std::min<rlim_t>(2000, allowed / 2)));
  for (int second = 0; second < 3; ++second) {
    for (raw_client &each : slow) {
      each.send(get_checksum.substr(static_cast<size_t>(second), 1));
    }
    for (int i = 0; i < 20; ++i) {
      EXPECT_LT(time_of_answer(), 1s);
      std::this_thread::sleep_for(50ms);
    }
  }
}

TEST_F(HttpServer, TakesAsManyDescriptorsAsItMayHave) {
  rlimit limit{};
  ASSERT_EQ(::prlimit(service_->pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
  EXPECT_EQ(limit.rlim_cur, limit.rlim_max);
}

TEST_F(HttpServer, GoesOnAfterItsDescriptorsHaveRunOut) {
  const std::string pid_file = dir_ / "pid";
  const std::string command = "ulimit -n 64; exec '" + std::string(ZOTCONF_PROGRAM) + "' serve '" +
                              publication_ + "' --port 0 --background --pid-file '" + pid_file +
                              "' >'" + (dir_ / "out") + "'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const std::string out = read_bytes(dir_ / "out");
  const auto port = static_cast<std::uint16_t>(std::stoul(out.substr(out.find(':') + 1)));
  std::vector<raw_client> idle = crowd(port, 100);
  EXPECT_LT(time_of_answer(port), 60s);
  EXPECT_TRUE(idle.front().is_closed_silently());
  ::kill(std::stoi(read_bytes(pid_file)), SIGTERM);
  wait_until([&] { return !exists(pid_file); }, "the end of the service");
}

TEST_F(HttpServer, AnswersOthersWhileArchivesAreMade) {
  std::vector<raw_client> waiting;
  for (int i = 0; i < 6; ++i) {
    waiting.push_back(client_for_archive());
  }
  EXPECT_LT(time_of_answer(), 1s);
  for (raw_client &each : waiting) {
    EXPECT_GT(each.read_all().size(), large);
  }
}

TEST_F(HttpServer, MakesArchivesWhileOthersAreReadSlowly) {
  std::vector<raw_client> slow;
  for (int i = 0; i < 3; ++i) {
    slow.push_back(client_for_archive());
    EXPECT_TRUE(slow.back().read_until("\r\n").starts_with("HTTP/1.1 200 "));
  }
  EXPECT_GT(client_for_archive().read_all().size(), large);
}

TEST_F(HttpServer, LogsAnAnswerThatItsClientDoesNotWaitFor) {
  client_for_archive().read_until("\r\n");
  EXPECT_EQ(line(0)["result"].text(), "broken off by the client");
  EXPECT_EQ(line(0)["status"].number(), 200);
}

TEST_F(HttpServer, StopsAtOnceWithEveryKindOfClient) {
  const std::vector<raw_client> idle = crowd(service_->port(), 20);
  std::vector<raw_client> slow = crowd(service_->port(), 20);
  for (raw_client &each : slow) {
    each.send(get_checksum);
  }
  std::vector<raw_client> waiting;
  for (int i = 0; i < 12; ++i) {
    waiting.push_back(client_for_archive());
  }
  (void)time_of_answer();
  const auto begin = clock::now();
  EXPECT_EQ(service_->stop(SIGTERM), 0);
  // Idle connections end after 5 seconds even without a stop.
  EXPECT_LT(clock::now() - begin, 4s);
}

TEST_F(HttpServer, AnswersSeveralRequestsOverOneConnectionAndEndsItWhenItIsIdle) {
  raw_client asking = client();
  for (int i = 0; i < 3; ++i) {
    asking.send(get_checksum + "\r\n");
    EXPECT_TRUE(asking.read_until("\n\r\n").starts_with("HTTP/1.1 200 "));
    EXPECT_EQ(asking.read_until("\n").size(), 65U);
  }
  EXPECT_EQ(line(2)["status"].number(), 200);
  const auto begin = clock::now();
  EXPECT_TRUE(asking.is_closed_silently());
  EXPECT_LT(clock::now() - begin, 20s);
}

TEST_F(HttpServer, AnswersAHeadWithoutTheBody) {
  raw_client asking = client();
  asking.send("HEAD " + checksum_url + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  const std::string answer = asking.read_all();
  EXPECT_NE(answer.find("Content-Length: 65\r\n"), std::string::npos) << answer;
  EXPECT_TRUE(answer.ends_with("\r\n\r\n")) << answer;
  EXPECT_EQ(line(0)["method"].text(), "HEAD");
  EXPECT_EQ(line(0)["bytes"].number(), 65);
}

TEST_F(HttpServer, RefusesABodyThatIsTooLong) {
  raw_client asking = client();
  asking.send("POST /tgz HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Length: " +
              std::to_string(longest_body + 1) + "\r\n\r\n");
  asking.send(std::string(longest_body + 1, ' '));
  const std::string answer = asking.read_all();
  EXPECT_TRUE(answer.starts_with("HTTP/1.1 413 ")) << answer;
  EXPECT_TRUE(answer.ends_with("\r\n\r\n{\"error\":\"request refused\"}\n")) << answer;
}

TEST_F(HttpServer, RefusesABodyThatBecomesTooLong) {
  raw_client asking = client();
  asking.send(
      "POST /tgz HTTP/1.1\r\nHost: x\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n");
  for (size_t sent = 0; sent <= longest_body; sent += 0x100000) {
    asking.send((sent == 0 ? "\r\n100000\r\n" : "100000\r\n") + std::string(0x100000, ' ') +
                "\r\n");
  }
  asking.send("0\r\n\r\n");
  EXPECT_TRUE(asking.read_all().starts_with("HTTP/1.1 413 "));
}

TEST_F(HttpServer, RefusesALongBodyBeforeItIsSentWhenAsked) {
  raw_client asking = client();
  asking.send("POST /tgz HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\nContent-Length: " +
              std::to_string(longest_body + 1) + "\r\n\r\n");
  EXPECT_TRUE(asking.read_all().starts_with("HTTP/1.1 413 "));
}

TEST_F(HttpServer, AsksForABodyThatIsAnnounced) {
  raw_client asking = client();
  asking.send(
      "POST /tgz HTTP/1.1\r\nHost: x\r\nConnection: close\r\nExpect: 100-continue\r\n"
      "Content-Length: 2\r\n\r\n");
  EXPECT_EQ(asking.read_until("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
  asking.send("{}");
  EXPECT_TRUE(asking.read_all().starts_with("HTTP/1.1 400 "));
}

TEST_F(HttpServer, RefusesMethodsThatItDoesNotKnow) {
  raw_client asking = client();
  asking.send("BREW / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  const std::string answer = asking.read_all();
  EXPECT_TRUE(answer.starts_with("HTTP/1.1 400 ")) << answer;
  EXPECT_TRUE(answer.ends_with("\r\n\r\n{\"error\":\"request refused\"}\n")) << answer;
}

TEST_F(HttpServer, LogsAHeaderThatIsNoHeader) {
  raw_client asking = client();
  asking.send("GET /asked HTTP/1.1\r\nno header\r\n\r\n");
  EXPECT_TRUE(asking.read_all().starts_with("HTTP/1.1 400 "));
  EXPECT_EQ(line(0)["path"].text(), "/asked");
  EXPECT_EQ(line(0)["method"].text(), "-");
  EXPECT_EQ(line(0)["status"].number(), 400);
  EXPECT_EQ(line(0)["result"].text(), "refused");
}

TEST_F(HttpServer, GoesOnAfterWhatIsNoHttp) {
  for (const std::string text :
       {"\r\n\r\n", "nonsense\r\n\r\n", "\x16\x03\x01 hello", "GET\r\n\r\n",
        "POST /tgz HTTP/1.1\r\nContent-Length: -1\r\n\r\n"}) {
    client().send(text);
  }
  EXPECT_LT(time_of_answer(), 10s);
}

}  // namespace
}  // namespace zot::test
