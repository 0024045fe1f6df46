// SPDX-License-Identifier: Apache-2.0
#include <curl/curl.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/env.hpp"
#include "tests/support/files.hpp"
#include "tests/support/service.hpp"
#include "utilities/owner.hpp"
#include "zot_conf.h"

namespace {

namespace fs = std::filesystem;
using zot::test::closed_port;
using zot::test::env_guard;
using zot::test::exists;
using zot::test::read_bytes;
using zot::test::request;
using zot::test::service;
using zot::test::temp_dir;
using zot::test::write_bytes;

// Responds without a file time, and redirects the client.
class bare_service {
 public:
  bare_service() {
    server_.Get("/undated", [](const httplib::Request &, httplib::Response &answer) {
      answer.set_content("bytes", "text/plain");
    });
    server_.Get("/moved", [](const httplib::Request &, httplib::Response &answer) {
      answer.set_redirect("/undated");
    });
    server_.set_keep_alive_max_count(1);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) {
      std::this_thread::yield();
    }
  }
  bare_service(const bare_service &) = delete;
  bare_service &operator=(const bare_service &) = delete;
  ~bare_service() {
    server_.stop();
    thread_.join();
  }

  [[nodiscard]] std::string url(const std::string &path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

class name_list {
 public:
  explicit name_list(const std::vector<std::string> &names) {
    zot_list_init(&head_);
    for (const std::string &name : names) {
      remote_file_name &entry = entries_.emplace_back();
      std::strncpy(entry.name, name.c_str(), sizeof entry.name - 1);
      zot_list_add_node_tail(&head_, &entry.node);
    }
  }
  name_list(const name_list &) = delete;
  name_list &operator=(const name_list &) = delete;

  [[nodiscard]] const zot_list *get() const { return &head_; }

 private:
  zot_list head_{};
  std::deque<remote_file_name> entries_;
};

// Reads standard input from a file for the duration of a scope.
class standard_input {
 public:
  explicit standard_input(const std::string &path) : before_(::dup(STDIN_FILENO)) {
    const zot::descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    ::dup2(file.get(), STDIN_FILENO);
    std::clearerr(stdin);
  }
  standard_input(const standard_input &) = delete;
  standard_input &operator=(const standard_input &) = delete;
  ~standard_input() {
    ::dup2(before_, STDIN_FILENO);
    ::close(before_);
  }

 private:
  int before_;
};

class HttpFetch : public testing::Test {
 protected:
  [[nodiscard]] int fetch(const std::string &url, zot_file_mem *mem = nullptr,
                          std::uint32_t timeout = 30, remote_file_stat *stat = nullptr) const {
    return get_remote_file_stat(url.c_str(), path_.c_str(), mem, timeout, stat);
  }
  [[nodiscard]] int fetch_set(const std::string &url, const name_list &names,
                              remote_file_stat *stat = nullptr) const {
    return get_remote_file_set_stat(url.c_str(), path_.c_str(), names.get(), 0, stat);
  }

  temp_dir dir_;
  std::string path_ = dir_ / "file";
  service service_;
};

class HttpFileFetch : public HttpFetch {};
class HttpSetFetch : public HttpFetch {};

TEST_F(HttpFileFetch, BringsTheFileToItsPath) {
  const std::string bytes("a\0b\n", 4);
  service_.answer("/x", 200, bytes);
  EXPECT_EQ(get_remote_file(service_.url("/x").c_str(), path_.c_str(), nullptr, 30), 0);
  EXPECT_EQ(read_bytes(path_), bytes);
  EXPECT_FALSE(exists(path_ + ".tmp"));
  EXPECT_EQ(service_.requests().at(0).method, "GET");
}

TEST_F(HttpFileFetch, ReplacesAnEarlierFile) {
  write_bytes(path_, "much longer before");
  service_.answer("/x", 200, "new");
  EXPECT_EQ(fetch(service_.url("/x")), 0);
  EXPECT_EQ(read_bytes(path_), "new");
}

TEST_F(HttpFileFetch, MemoryHoldsTheFileAndItsLength) {
  const std::string bytes(100000, 'm');
  service_.answer("/x", 200, bytes);
  zot_file_mem mem{};
  EXPECT_EQ(fetch(service_.url("/x"), &mem), 0);
  const zot::c_text owned(mem.data);
  ASSERT_NE(mem.data, nullptr);
  EXPECT_EQ(mem.size, bytes.size());
  EXPECT_EQ(std::string(mem.data), bytes);
  EXPECT_EQ(read_bytes(path_), bytes);
}

TEST_F(HttpFileFetch, EmptyAnswerCannotBeReadBackButStays) {
  service_.answer("/x", 200, "");
  zot_file_mem mem{};
  EXPECT_EQ(fetch(service_.url("/x"), &mem), -1);
  EXPECT_EQ(mem.data, nullptr);
  EXPECT_EQ(mem.size, 0U);
  EXPECT_EQ(read_bytes(path_), "");
}

TEST_F(HttpFileFetch, EmptyAnswerWithoutMemoryIsAFile) {
  service_.answer("/x", 200, "");
  EXPECT_EQ(fetch(service_.url("/x")), 0);
  EXPECT_EQ(read_bytes(path_), "");
}

TEST_F(HttpFileFetch, NotFoundLeavesTheDestinationAndKeepsTheErrorBodyAside) {
  write_bytes(path_, "before");
  service_.answer("/x", 404, "no such file");
  zot_file_mem mem{};
  EXPECT_EQ(fetch(service_.url("/x"), &mem), -1);
  EXPECT_EQ(read_bytes(path_), "before");
  EXPECT_EQ(read_bytes(path_ + ".tmp"), "no such file");
  EXPECT_EQ(mem.data, nullptr);
}

TEST_F(HttpFileFetch, EveryCodeOtherThan200Fails) {
  for (const int code : {201, 204, 206, 400, 403, 500, 503}) {
    service_.answer("/x", code, "");
    remote_file_stat stat{};
    EXPECT_EQ(fetch(service_.url("/x"), nullptr, 30, &stat), -1) << code;
    EXPECT_EQ(stat.http_code, code);
    EXPECT_FALSE(exists(path_)) << code;
  }
}

TEST_F(HttpFileFetch, StatisticsTellTimeBytesCodeAndFileTime) {
  service_.answer("/x", 200, "12345");
  service_.delay("/x", 50);
  remote_file_stat stat{};
  EXPECT_EQ(fetch(service_.url("/x"), nullptr, 30, &stat), 0);
  EXPECT_GE(stat.total_time, 0.05);
  EXPECT_LT(stat.total_time, 30);
  EXPECT_EQ(stat.bytes, 5U);
  EXPECT_EQ(stat.http_code, 200);
  EXPECT_EQ(stat.file_time, service::file_time);
}

TEST_F(HttpFileFetch, FileTimeThatWasNotToldStays) {
  const bare_service undated;
  remote_file_stat stat{};
  stat.file_time = 77;
  EXPECT_EQ(fetch(undated.url("/undated"), nullptr, 30, &stat), 0);
  EXPECT_EQ(stat.file_time, 77);
}

TEST_F(HttpFileFetch, RedirectionIsNotFollowed) {
  const bare_service moved;
  remote_file_stat stat{};
  EXPECT_EQ(fetch(moved.url("/moved"), nullptr, 30, &stat), -1);
  EXPECT_EQ(stat.http_code, 302);
  EXPECT_FALSE(exists(path_));
}

TEST_F(HttpFileFetch, SilentServiceTimesOut) {
  service_.answer("/x", 200, "late");
  service_.delay("/x", 20000);
  EXPECT_EQ(fetch(service_.url("/x"), nullptr, 1), CURLE_OPERATION_TIMEDOUT);
  EXPECT_FALSE(exists(path_));
}

TEST_F(HttpFileFetch, TakesNoLimitAndTheLongestLimit) {
  service_.answer("/x", 200, "bytes");
  for (const std::uint32_t timeout : {0U, UINT32_MAX}) {
    EXPECT_EQ(fetch(service_.url("/x"), nullptr, timeout), 0) << timeout;
  }
}

TEST_F(HttpFileFetch, RefusedConnectionIsLibcurlsCode) {
  const std::string url = "http://127.0.0.1:" + std::to_string(closed_port()) + "/x";
  EXPECT_EQ(fetch(url), CURLE_COULDNT_CONNECT);
}

TEST_F(HttpFileFetch, BrokenTransferIsLibcurlsCodeAndLeavesTheDestination) {
  write_bytes(path_, "before");
  service_.answer("/x", 200, "1234567890");
  service_.break_off("/x", 4);
  EXPECT_EQ(fetch(service_.url("/x")), CURLE_PARTIAL_FILE);
  EXPECT_EQ(read_bytes(path_), "before");
  EXPECT_EQ(read_bytes(path_ + ".tmp"), "1234");
}

TEST_F(HttpFileFetch, OtherProtocolsAreRefused) {
  write_bytes(dir_ / "local", "secret");
  EXPECT_EQ(fetch("file://" + (dir_ / "local")), CURLE_UNSUPPORTED_PROTOCOL);
  EXPECT_FALSE(exists(path_));
}

TEST_F(HttpFileFetch, MissingOrEmptyArgumentsAreRefused) {
  const std::string url = service_.url("/x");
  EXPECT_EQ(get_remote_file_stat(nullptr, path_.c_str(), nullptr, 30, nullptr), -1);
  EXPECT_EQ(get_remote_file_stat("", path_.c_str(), nullptr, 30, nullptr), -1);
  EXPECT_EQ(get_remote_file_stat(url.c_str(), nullptr, nullptr, 30, nullptr), -1);
  EXPECT_EQ(get_remote_file_stat(url.c_str(), "", nullptr, 30, nullptr), -1);
  EXPECT_TRUE(service_.requests().empty());
}

TEST_F(HttpFileFetch, UnwritableTemporaryFileFailsWithoutARequest) {
  path_ = dir_ / "absent/file";
  EXPECT_EQ(fetch(service_.url("/x")), -1);
  EXPECT_TRUE(service_.requests().empty());
}

TEST_F(HttpFileFetch, PathWithoutRoomForTheTemporaryNameFails) {
  path_ = dir_.path() + "/" + std::string(ZOT_PATH_SIZE, 'x');
  path_.resize(ZOT_PATH_SIZE - 4);
  EXPECT_EQ(fetch(service_.url("/x")), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_TRUE(service_.requests().empty());
}

TEST_F(HttpFileFetch, FullMediumAtTheCloseFails) {
  write_bytes(path_, "before");
  fs::create_symlink("/dev/full", path_ + ".tmp");
  service_.answer("/x", 200, "short");
  EXPECT_EQ(fetch(service_.url("/x")), -1);
  ASSERT_FALSE(fs::is_symlink(path_));
  EXPECT_EQ(read_bytes(path_), "before");
}

TEST_F(HttpFileFetch, FullMediumDuringTheTransferIsAWriteError) {
  fs::create_symlink("/dev/full", path_ + ".tmp");
  service_.answer("/x", 200, std::string(1000000, 'x'));
  EXPECT_EQ(fetch(service_.url("/x")), CURLE_WRITE_ERROR);
  EXPECT_FALSE(exists(path_));
}

class HttpProxy : public HttpFetch {
 protected:
  env_guard no_proxy_{"no_proxy", std::nullopt};
  env_guard no_proxy_upper_{"NO_PROXY", std::nullopt};
  env_guard all_proxy_{"all_proxy", std::nullopt};
  env_guard http_proxy_{"http_proxy", std::nullopt};
};

TEST_F(HttpProxy, LoopbackHostsAreReachedDirectly) {
  http_proxy_.set("http://127.0.0.1:" + std::to_string(closed_port()));
  service_.answer("/x", 200, "bytes");
  const std::string port = ":" + std::to_string(service_.port());
  for (const std::string host : {"127.0.0.1", "localhost", "LocalHost"}) {
    EXPECT_EQ(fetch("http://" + host + port + "/x"), 0) << host;
    EXPECT_EQ(fetch(host + port + "/x"), 0) << host << " without a scheme";
  }
  EXPECT_EQ(fetch_set("http://127.0.0.1" + port + "/x", name_list({"a"})), 0);
}

TEST_F(HttpProxy, Ipv6LoopbackIsReachedDirectly) {
  http_proxy_.set("http://" + service_.host());
  service_.answer("/x", 200, "from the proxy");
  EXPECT_GT(fetch("http://[::1]:" + std::to_string(closed_port()) + "/x"), 0);
  EXPECT_TRUE(service_.requests().empty());
}

TEST_F(HttpProxy, OtherHostsAreReachedThroughTheProxy) {
  http_proxy_.set("http://" + service_.host());
  service_.answer("/x", 200, "from the proxy");
  for (const std::string host :
       {"controller.invalid", "127.controller.invalid", "127.0.0.1.invalid",
        "127.0.0.1:80@controller.invalid", "127.0.0.1:@controller.invalid"}) {
    EXPECT_EQ(fetch("http://" + host + "/x"), 0) << host;
    EXPECT_EQ(read_bytes(path_), "from the proxy");
  }
}

TEST_F(HttpSetFetch, PostsTheNamesAndKeepsTheAnswer) {
  service_.answer("/tgz", 200, "archive");
  const name_list names({"/Wlan/guest/1", "/Ap/\"x\"/2"});
  const std::string url = service_.url("/tgz");
  EXPECT_EQ(get_remote_file_set(url.c_str(), path_.c_str(), names.get(), 1), 0);
  EXPECT_EQ(read_bytes(path_), "archive");
  ASSERT_EQ(service_.requests().size(), 1U);
  const request made = service_.requests()[0];
  EXPECT_EQ(made.method, "POST");
  EXPECT_EQ(made.body, "{\n\t\"files\":\t[\"/Wlan/guest/1\", \"/Ap/\\\"x\\\"/2\"]\n}");
}

TEST_F(HttpSetFetch, EmptyNamesAreLeftOut) {
  service_.answer("/tgz", 200, "archive");
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list({"", "a", "", "b"})), 0);
  EXPECT_EQ(service_.requests().at(0).body, "{\n\t\"files\":\t[\"a\", \"b\"]\n}");
}

TEST_F(HttpSetFetch, NothingToAskForPostsAnEmptyBody) {
  service_.answer("/tgz", 200, "archive");
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list({})), 0);
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list({"", ""})), 0);
  ASSERT_EQ(service_.requests().size(), 2U);
  for (const request &made : service_.requests()) {
    EXPECT_EQ(made.method, "POST");
    EXPECT_EQ(made.body, "");
  }
}

TEST_F(HttpSetFetch, EmptyBodyIsNotTakenFromStandardInput) {
  service_.answer("/tgz", 200, "archive");
  write_bytes(dir_ / "typed", "typed by somebody");
  const standard_input typed(dir_ / "typed");
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list({})), 0);
  EXPECT_EQ(service_.requests().at(0).body, "");
}

TEST_F(HttpSetFetch, ZeroFilledListCountsAsEmpty) {
  service_.answer("/tgz", 200, "archive");
  const zot_list head{};
  EXPECT_EQ(get_remote_file_set(service_.url("/tgz").c_str(), path_.c_str(), &head, 0), 0);
  EXPECT_EQ(service_.requests().at(0).body, "");
}

TEST_F(HttpSetFetch, LongListArrivesWhole) {
  service_.answer("/tgz", 200, "archive");
  std::vector<std::string> names;
  for (int i = 0; i < 500; ++i) {
    names.push_back("/Wlan/" + std::string(40, 'k') + std::to_string(i) + "/1");
  }
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list(names)), 0);
  const std::string body = service_.requests().at(0).body;
  EXPECT_NE(body.find(names.front()), std::string::npos);
  EXPECT_NE(body.find(names.back()), std::string::npos);
}

TEST_F(HttpSetFetch, StatisticsLeaveTheResponseCodeOut) {
  service_.answer("/tgz", 200, "archive");
  remote_file_stat stat{};
  stat.http_code = 77;
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list({"a"}), &stat), 0);
  EXPECT_GT(stat.total_time, 0.0);
  EXPECT_EQ(stat.bytes, 7U);
  EXPECT_EQ(stat.file_time, service::file_time);
  EXPECT_EQ(stat.http_code, 77);
}

TEST_F(HttpSetFetch, AnyOtherCodeFailsAndTheBodyIsInTheDestination) {
  service_.answer("/tgz", 500, "broken");
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list({"a"})), -1);
  EXPECT_EQ(read_bytes(path_), "broken");
}

TEST_F(HttpSetFetch, BrokenTransferIsLibcurlsCode) {
  service_.answer("/tgz", 200, "1234567890");
  service_.break_off("/tgz", 4);
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list({"a"})), CURLE_PARTIAL_FILE);
}

TEST_F(HttpSetFetch, RefusedConnectionIsLibcurlsCode) {
  const std::string url = "http://127.0.0.1:" + std::to_string(closed_port()) + "/tgz";
  EXPECT_EQ(fetch_set(url, name_list({"a"})), CURLE_COULDNT_CONNECT);
}

TEST_F(HttpSetFetch, UnwritableDestinationTransfersNothingAndIsNoFailure) {
  path_ = dir_ / "absent/file";
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list({"a"})), 0);
  EXPECT_TRUE(service_.requests().empty());
  EXPECT_FALSE(exists(dir_ / "absent"));
}

TEST_F(HttpSetFetch, MissingOrEmptyArgumentsAreRefused) {
  const name_list names({"a"});
  const std::string url = service_.url("/tgz");
  EXPECT_EQ(get_remote_file_set(nullptr, path_.c_str(), names.get(), 0), -1);
  EXPECT_EQ(get_remote_file_set("", path_.c_str(), names.get(), 0), -1);
  EXPECT_EQ(get_remote_file_set(url.c_str(), nullptr, names.get(), 0), -1);
  EXPECT_EQ(get_remote_file_set(url.c_str(), "", names.get(), 0), -1);
  EXPECT_EQ(get_remote_file_set(url.c_str(), path_.c_str(), nullptr, 0), -1);
  EXPECT_TRUE(service_.requests().empty());
  EXPECT_FALSE(exists(path_));
}

TEST_F(HttpSetFetch, FullMediumAtTheCloseFails) {
  fs::create_symlink("/dev/full", path_);
  service_.answer("/tgz", 200, "short");
  EXPECT_EQ(fetch_set(service_.url("/tgz"), name_list({"a"})), -1);
}

TEST_F(HttpSetFetch, OtherProtocolsAreRefused) {
  write_bytes(dir_ / "local", "secret");
  EXPECT_EQ(fetch_set("file://" + (dir_ / "local"), name_list({"a"})), CURLE_UNSUPPORTED_PROTOCOL);
}

}  // namespace
