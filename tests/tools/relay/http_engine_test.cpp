// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/http_engine.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <thread>

#include "tests/support/files.hpp"
#include "tests/tools/relay/fetching.hpp"
#include "tests/tools/relay/nginx.hpp"
#include "tests/tools/relay/scripted_server.hpp"
#include "tests/tools/relay/tls_authority.hpp"
#include "tests/tools/support/process.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::upstream;
using zotconf::wanted_file;
using connection = scripted_server::connection;
using steady = std::chrono::steady_clock;

size_t open_descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

// Serves the same bytes under every name.
class HttpEngine : public testing::Test, protected fetching {
 protected:
  HttpEngine() {
    server_.set_keep_alive_max_count(1'000'000);
    server_.set_tcp_nodelay(true);
    server_.Get(".*", [this](const httplib::Request &, httplib::Response &answer) {
      answer.set_content(bytes_, "application/octet-stream");
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    wait_until([this] { return server_.is_running(); }, "the server");
  }
  ~HttpEngine() override {
    server_.stop();
    thread_.join();
  }

  [[nodiscard]] zotconf::upstream_options options() const {
    return options_for("http://127.0.0.1:" + std::to_string(port_));
  }
  [[nodiscard]] std::vector<wanted_file> files(size_t number) const {
    std::vector<wanted_file> all;
    for (size_t i = 0; i < number; ++i) {
      all.push_back(wanted("n" + std::to_string(i), bytes_.size()));
    }
    return all;
  }

  std::string bytes_ = "bytes";

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

double seconds_since(steady::time_point begin) {
  return std::chrono::duration<double>(steady::now() - begin).count();
}

TEST_F(HttpEngine, BringsManyFilesWithFewDescriptors) {
  upstream from(options(), never);
  const size_t before = open_descriptors();
  size_t most = 0;
  size_t arrived = 0;
  const zotconf::fetch_end end = from.fetch(files(600), [&](size_t) {
    if (++arrived % 20 == 0) {
      most = std::max(most, open_descriptors());
    }
  });
  EXPECT_EQ(end.wrong, "");
  EXPECT_EQ(arrived, 600U);
  EXPECT_EQ(from.received(), 3000U);
  EXPECT_EQ(read_bytes(file("n599")), "bytes");
  // Eight connections have two ends here; eight files may be open; the rest is libcurl's own.
  EXPECT_LE(most, before + 40);
}

TEST_F(HttpEngine, KeepsToTheRateWithALargeFile) {
  bytes_ = noise(150'000);
  zotconf::upstream_options limited = options();
  limited.limit_rate = 100'000;
  upstream from(limited, never);
  const auto begin = steady::now();
  EXPECT_EQ(fetch(from, files(1)).end.wrong, "");
  EXPECT_GT(seconds_since(begin), 1.3);
  EXPECT_LT(seconds_since(begin), 5);
  EXPECT_EQ(read_bytes(file("n0")), bytes_);
}

TEST_F(HttpEngine, KeepsToTheRateWithSmallFiles) {
  bytes_ = std::string(1000, 'x');
  zotconf::upstream_options limited = options();
  limited.limit_rate = 100'000;
  upstream from(limited, never);
  const auto begin = steady::now();
  EXPECT_EQ(fetch(from, files(120)).end.wrong, "");
  EXPECT_GT(seconds_since(begin), 1.0);
  EXPECT_LT(seconds_since(begin), 5);
}

TEST_F(HttpEngine, DoesNotTakeALowRateForSilence) {
  bytes_ = std::string(1500, 'x');
  zotconf::upstream_options limited = options();
  limited.limit_rate = 1000;
  limited.silence = 900ms;
  upstream from(limited, never);
  const auto begin = steady::now();
  EXPECT_EQ(fetch(from, files(2)).end.wrong, "");
  EXPECT_GT(seconds_since(begin), 1.4);
}

TEST_F(HttpEngine, EndsWithinTheRateWhenItIsStopped) {
  bytes_ = std::string(50'000, 'x');
  zotconf::upstream_options limited = options();
  limited.limit_rate = 1000;
  upstream from(limited, stop_after(500ms));
  const auto begin = steady::now();
  EXPECT_EQ(fetch(from, files(1)).end.wrong, "stopped");
  EXPECT_LT(seconds_since(begin), 5);
}

TEST(HttpEngineWaiting, ForAFreeConnectionIsNoSilence) {
  // Each request is answered after a while, so later ones wait longer than the patience.
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    std::this_thread::sleep_for(300ms);
    return with.send(response("200 OK", "", "x"));
  });
  const fetching here;
  zotconf::upstream_options options = options_for(server.url());
  options.silence = 700ms;
  options.connect_timeout = 700ms;
  upstream from(options, never);
  std::vector<wanted_file> files;
  for (int i = 0; i < 40; ++i) {
    files.push_back(here.wanted(std::to_string(i), 1));
  }
  EXPECT_EQ(fetching::fetch(from, files).end.wrong, "");
  EXPECT_LE(server.connections(), 8U);
}

TEST(HttpEngineWaiting, ForTheCallerIsNoSilence) {
  const scripted_server server([](connection &with, const std::string &head, unsigned) {
    if (head.find("/slow/") != std::string::npos) {
      std::this_thread::sleep_for(700ms);
    }
    return with.send(response("200 OK", "", "x"));
  });
  const fetching here;
  zotconf::upstream_options options = options_for(server.url());
  options.silence = 500ms;
  upstream from(options, never);
  const auto end = from.fetch({here.wanted("a", 1), here.wanted("slow", 1)},
                              [](size_t) { std::this_thread::sleep_for(600ms); });
  EXPECT_EQ(end.wrong, "");
}

TEST(HttpEngineWaiting, EndsATransferThatIsSilentBesideOthers) {
  const scripted_server server([](connection &with, const std::string &head, unsigned) {
    if (head.find("/silent/") == std::string::npos) {
      return with.send(response("200 OK", "", "x"));
    }
    with.stay_silent();
    return false;
  });
  const fetching here;
  zotconf::upstream_options options = options_for(server.url());
  options.silence = 400ms;
  upstream from(options, never);
  const auto all =
      fetching::fetch(from, {here.wanted("silent", 1), here.wanted("a", 1), here.wanted("b", 1)});
  EXPECT_EQ(all.end.wrong, "config/Wlan/silent/1: no answer for 400ms");
  EXPECT_EQ(all.arrived.size(), 2U);
}

class HttpEngineWithHttp2 : public testing::Test, protected fetching {
 protected:
  void SetUp() override {
    ASSERT_TRUE(nginx::is_installed()) << "nginx is not installed";
    authority_.issue({.name = "server", .names = "IP:127.0.0.1"});
    server_ = std::make_unique<nginx>(authority_);
  }
  [[nodiscard]] zotconf::upstream_options options() const {
    zotconf::upstream_options options = options_for(server_->url());
    options.ca = authority_.path();
    return options;
  }
  [[nodiscard]] std::vector<wanted_file> put_files(size_t number, const std::string &bytes) const {
    std::vector<wanted_file> all;
    for (size_t i = 0; i < number; ++i) {
      const std::string name = "n" + std::to_string(i);
      server_->put("config/Wlan/" + name + "/1", name + bytes);
      all.push_back(wanted(name, name.size() + bytes.size()));
    }
    return all;
  }

  tls_authority authority_;
  std::unique_ptr<nginx> server_;
};

TEST_F(HttpEngineWithHttp2, UsesOneConnectionForAllFiles) {
  const std::vector<wanted_file> files = put_files(nginx::requests_of_a_connection - 1, "bytes");
  upstream from(options(), never);
  const result all = fetch(from, files);
  EXPECT_EQ(all.end.wrong, "");
  EXPECT_EQ(all.arrived.size(), files.size());
  EXPECT_EQ(read_bytes(file("n198")), "n198bytes");
  wait_until([&] { return server_->requests().size() == files.size(); }, "the log");
  const std::vector<std::string> requests = server_->requests();
  const std::set<std::string> connections(requests.begin(), requests.end());
  EXPECT_EQ(connections.size(), 1U);
  EXPECT_TRUE(requests.front().starts_with("HTTP/2.0 ")) << requests.front();
}

TEST_F(HttpEngineWithHttp2, BringsLargeFilesAtOnce) {
  const std::string bytes = noise(500'000);
  upstream from(options(), never);
  EXPECT_EQ(fetch(from, put_files(20, bytes)).end.wrong, "");
  for (int i = 0; i < 20; ++i) {
    const std::string name = "n" + std::to_string(i);
    EXPECT_TRUE(read_bytes(file(name)) == name + bytes) << name;
  }
}

TEST_F(HttpEngineWithHttp2, GoesOnWhenTheServerEndsTheConnection) {
  upstream from(options(), never);
  const result all = fetch(from, put_files(500, "bytes"));
  EXPECT_EQ(all.end.wrong, "");
  EXPECT_EQ(all.arrived.size(), 500U);
}

TEST_F(HttpEngineWithHttp2, KeepsToTheRate) {
  zotconf::upstream_options limited = options();
  limited.limit_rate = 200'000;
  upstream from(limited, never);
  const std::vector<wanted_file> files = put_files(60, std::string(5000, 'x'));
  const auto begin = steady::now();
  EXPECT_EQ(fetch(from, files).end.wrong, "");
  EXPECT_GT(seconds_since(begin), 1.2);
  EXPECT_LT(seconds_since(begin), 6);
}

TEST_F(HttpEngineWithHttp2, ReportsAFileThatIsMissing) {
  std::vector<wanted_file> files = put_files(50, "bytes");
  files.push_back(wanted("missing", 5));
  upstream from(options(), never);
  EXPECT_EQ(fetch(from, files).end.wrong, "config/Wlan/missing/1: status 404");
}

TEST_F(HttpEngineWithHttp2, ContinuesAFileAndReturnsItsEtag) {
  const std::vector<wanted_file> files = put_files(1, noise(50'000));
  write_bytes(file("n0"), "n0");
  upstream from(options(), never);
  EXPECT_EQ(fetch(from, files).end.wrong, "");
  EXPECT_EQ(read_bytes(file("n0")), "n0" + noise(50'000));
  EXPECT_EQ(from.received(), 50'000U);
  const std::string etag = from.get("config/Wlan/n0/1", 100'000).etag;
  EXPECT_NE(etag, "");
  EXPECT_EQ(from.get("config/Wlan/n0/1", 100'000, etag).status, 304);
}

}  // namespace
}  // namespace zot::test
