// SPDX-License-Identifier: Apache-2.0
// Transfers with a size limit, and transfers that their caller watches.
#include "utilities/http_limits.hpp"

#include <curl/curl.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/support/service.hpp"
#include "zot_conf.h"

namespace {

using zot::test::exists;
using zot::test::read_bytes;
using zot::test::service;
using zot::test::temp_dir;
using zot::test::write_bytes;

constexpr std::uint64_t limit = 100000;

// A service with a single address, without the features of the others.
class plain_service {
 public:
  plain_service() = default;
  plain_service(const plain_service &) = delete;
  plain_service &operator=(const plain_service &) = delete;
  ~plain_service() {
    server_.stop();
    thread_.join();
  }

  [[nodiscard]] std::string url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/x";
  }

 protected:
  httplib::Server &server() { return server_; }
  void listen() {
    server_.set_keep_alive_max_count(1);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) {
      std::this_thread::yield();
    }
  }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

// Answers GET and POST in chunks, without announcing the length.
class chunked_service : public plain_service {
 public:
  explicit chunked_service(std::size_t bytes) {
    const auto answer_in_chunks = [bytes](const httplib::Request &, httplib::Response &answer) {
      answer.set_chunked_content_provider(
          "text/plain", [bytes](std::size_t offset, httplib::DataSink &sink) {
            const std::string chunk(std::min<std::size_t>(bytes - offset, 1000), 'x');
            sink.write(chunk.data(), chunk.size());
            if (offset + chunk.size() == bytes) {
              sink.done();
            }
            return true;
          });
    };
    server().Get("/x", answer_in_chunks);
    server().Post("/x", answer_in_chunks);
    listen();
  }
};

class Transfer : public testing::Test {
 protected:
  [[nodiscard]] int fetch(const std::string &url, std::uint64_t most = limit,
                          zot_file_mem *mem = nullptr) const {
    return zot::get_remote_file_within(url.c_str(), path_.c_str(), mem, 30, most, nullptr);
  }
  [[nodiscard]] int fetch_set(const std::string &url, std::uint64_t most = limit) const {
    const zot_list names{};
    return zot::get_remote_file_set_within(url.c_str(), path_.c_str(), &names, most, nullptr);
  }
  void offer(std::size_t bytes) { service_.answer("/x", 200, std::string(bytes, 'x')); }

  temp_dir dir_;
  std::string path_ = dir_ / "file";
  service service_;
  std::string url_ = service_.url("/x");
};

class TransferLimit : public Transfer {};

TEST_F(TransferLimit, BodyOfThatSizeIsTaken) {
  offer(limit);
  EXPECT_EQ(fetch(url_), 0);
  EXPECT_EQ(read_bytes(path_).size(), limit);
  EXPECT_EQ(fetch_set(url_), 0);
  EXPECT_EQ(read_bytes(path_).size(), limit);
}

TEST_F(TransferLimit, ChunkedBodyOfThatSizeIsTaken) {
  const chunked_service remote(limit);
  EXPECT_EQ(fetch(remote.url()), 0);
  EXPECT_EQ(read_bytes(path_).size(), limit);
  EXPECT_EQ(fetch_set(remote.url()), 0);
  EXPECT_EQ(read_bytes(path_).size(), limit);
}

TEST_F(TransferLimit, NothingIsFetchedOfALongerBodyThatIsAnnounced) {
  offer(limit + 1);
  EXPECT_EQ(fetch(url_), CURLE_FILESIZE_EXCEEDED);
  EXPECT_EQ(read_bytes(path_ + ".tmp"), "");
  EXPECT_EQ(fetch_set(url_), CURLE_FILESIZE_EXCEEDED);
  EXPECT_EQ(read_bytes(path_), "");
}

TEST_F(TransferLimit, ALongerChunkedBodyIsEnded) {
  const chunked_service remote(limit + 1);
  EXPECT_EQ(fetch(remote.url()), CURLE_FILESIZE_EXCEEDED);
  EXPECT_LE(read_bytes(path_ + ".tmp").size(), limit);
  EXPECT_EQ(fetch_set(remote.url()), CURLE_FILESIZE_EXCEEDED);
  EXPECT_LE(read_bytes(path_).size(), limit);
}

TEST_F(TransferLimit, ALongerBodyLeavesTheDestinationAndTheMemory) {
  write_bytes(path_, "before");
  const chunked_service remote(limit + 1);
  zot_file_mem mem{};
  EXPECT_EQ(fetch(remote.url(), limit, &mem), CURLE_FILESIZE_EXCEEDED);
  EXPECT_EQ(read_bytes(path_), "before");
  EXPECT_EQ(mem.data, nullptr);
}

TEST_F(TransferLimit, RefusalOfAnyLengthIsARefusal) {
  service_.answer("/x", 404, std::string(limit + 1, 'x'));
  remote_file_stat stat{};
  EXPECT_EQ(zot::get_remote_file_within(url_.c_str(), path_.c_str(), nullptr, 30, limit, &stat),
            -1);
  EXPECT_EQ(stat.http_code, 404);
  EXPECT_LE(read_bytes(path_ + ".tmp").size(), limit);
  EXPECT_EQ(fetch_set(url_), -1);
}

TEST_F(TransferLimit, ZeroIsNone) {
  const chunked_service remote(limit + 1);
  EXPECT_EQ(fetch(remote.url(), 0), 0);
  EXPECT_EQ(fetch_set(remote.url(), 0), 0);
  EXPECT_EQ(read_bytes(path_).size(), limit + 1);
}

TEST_F(TransferLimit, MayBeLargerThanLibcurlCounts) {
  offer(10);
  EXPECT_EQ(fetch(url_, UINT64_MAX), 0);
  EXPECT_EQ(fetch_set(url_, UINT64_MAX), 0);
}

TEST_F(TransferLimit, FullMediumIsStillAWriteError) {
  std::filesystem::create_symlink("/dev/full", path_ + ".tmp");
  offer(limit);
  EXPECT_EQ(fetch(url_), CURLE_WRITE_ERROR);
}

// Sends headers of one kibibyte each.
class talkative_service : public plain_service {
 public:
  explicit talkative_service(int headers) {
    server().Get("/x", [headers](const httplib::Request &, httplib::Response &answer) {
      for (int i = 0; i < headers; ++i) {
        answer.headers.emplace("X-Filler", std::string(1012, 'x'));
      }
      answer.set_content("body", "text/plain");
    });
    listen();
  }
};

TEST_F(TransferLimit, HeadersOf200KiBAreTaken) {
  const talkative_service remote(200);
  EXPECT_EQ(fetch(remote.url()), 0);
}

TEST_F(TransferLimit, MoreHeadersThan256KiBEndAnyTransfer) {
  const talkative_service remote(257);
  EXPECT_EQ(fetch(remote.url()), CURLE_FILESIZE_EXCEEDED);
  EXPECT_EQ(fetch(remote.url(), 0), CURLE_FILESIZE_EXCEEDED);
}

// Counts its calls, and ends the transfer at one of them.
struct watcher {
  std::vector<std::uint64_t> received = {};
  std::size_t end_at = SIZE_MAX;
  int answer = 1;

  static int look(void *self, std::uint64_t bytes) {
    auto &seen = *static_cast<watcher *>(self);
    seen.received.push_back(bytes);
    return seen.received.size() > seen.end_at ? seen.answer : 0;
  }
};

class WatchTransfers : public Transfer {
 protected:
  void TearDown() override { zot_util_watch_transfers(nullptr, nullptr); }

  watcher seen_;
};

TEST_F(WatchTransfers, TellsHowManyBytesCame) {
  offer(limit);
  zot_util_watch_transfers(watcher::look, &seen_);
  EXPECT_EQ(fetch(url_, 0), 0);
  ASSERT_FALSE(seen_.received.empty());
  EXPECT_TRUE(std::is_sorted(seen_.received.begin(), seen_.received.end()));
  EXPECT_EQ(seen_.received.front(), 0U);
  EXPECT_EQ(seen_.received.back(), limit);
}

TEST_F(WatchTransfers, TellsNothingOnceItIsTakenOff) {
  offer(10);
  zot_util_watch_transfers(watcher::look, &seen_);
  zot_util_watch_transfers(nullptr, nullptr);
  EXPECT_EQ(fetch(url_), 0);
  EXPECT_EQ(fetch_set(url_), 0);
  EXPECT_TRUE(seen_.received.empty());
}

TEST_F(WatchTransfers, AnyAnswerButZeroEndsTheTransfer) {
  offer(10);
  zot_util_watch_transfers(watcher::look, &seen_);
  // libcurl takes the third value as a request for its own progress meter.
  for (const int answer : {1, -1, 0x10000001}) {
    seen_ = {.end_at = 0, .answer = answer};
    EXPECT_EQ(fetch(url_), CURLE_ABORTED_BY_CALLBACK) << answer;
    EXPECT_FALSE(exists(path_));
    EXPECT_EQ(seen_.received.size(), 1U);
  }
}

TEST_F(WatchTransfers, EndsASetTransferToo) {
  offer(10);
  seen_.end_at = 0;
  zot_util_watch_transfers(watcher::look, &seen_);
  EXPECT_EQ(fetch_set(url_), CURLE_ABORTED_BY_CALLBACK);
}

TEST_F(WatchTransfers, IsCalledWhileNothingArrives) {
  offer(10);
  service_.delay("/x", 20000);
  struct deadline {
    std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration longest{};
    std::chrono::steady_clock::time_point end = last + std::chrono::milliseconds(2500);

    static int look(void *self, std::uint64_t /*received*/) {
      auto &seen = *static_cast<deadline *>(self);
      const auto now = std::chrono::steady_clock::now();
      seen.longest = std::max(seen.longest, now - seen.last);
      seen.last = now;
      return now >= seen.end ? 1 : 0;
    }
  } seen;
  zot_util_watch_transfers(deadline::look, &seen);
  EXPECT_EQ(fetch_set(url_), CURLE_ABORTED_BY_CALLBACK);
  EXPECT_LT(seen.longest, std::chrono::seconds(5));
  EXPECT_LT(seen.last, seen.end + std::chrono::seconds(5));
}

TEST_F(WatchTransfers, TheCallbackMayTakeItselfOff) {
  offer(limit);
  static std::size_t calls;
  calls = 0;
  zot_util_watch_transfers(
      [](void *, std::uint64_t) {
        ++calls;
        zot_util_watch_transfers(nullptr, nullptr);
        return 0;
      },
      nullptr);
  EXPECT_EQ(fetch(url_), 0);
  EXPECT_EQ(calls, 1U);
}

TEST_F(WatchTransfers, EachThreadHasItsOwn) {
  offer(10);
  seen_.end_at = 0;
  zot_util_watch_transfers(watcher::look, &seen_);
  int unwatched = -1;
  std::thread([&] { unwatched = fetch(url_); }).join();
  EXPECT_EQ(unwatched, 0);
  EXPECT_TRUE(seen_.received.empty());
}

}  // namespace
