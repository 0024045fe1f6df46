// SPDX-License-Identifier: Apache-2.0
#include "tools/relay/file_fetch.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <string>

#include "tests/support/files.hpp"
#include "tests/tools/relay/fetching.hpp"
#include "tests/tools/relay/scripted_server.hpp"

namespace zot::test {
namespace {

using namespace std::chrono_literals;
using zotconf::upstream;
using zotconf::wanted_file;
using connection = scripted_server::connection;
using results = std::vector<size_t>;

class FileFetch : public testing::Test, protected fetching {
 protected:
  // The offset that a request asks for; 0 without a Range.
  static size_t offset_of(const std::string &head) {
    const std::string header = range_header(head);
    size_t offset = 0;
    if (const size_t at = header.find('='); at != std::string::npos) {
      std::from_chars(header.data() + at + 1, header.data() + header.size(), offset);
    }
    return offset;
  }
  // The head of a response with the rest of a file, or with the whole file.
  [[nodiscard]] static std::string head_from(size_t offset, size_t size) {
    const std::string length = "Content-Length: " + std::to_string(size - offset) + "\r\n\r\n";
    if (offset == 0) {
      return "HTTP/1.1 200 OK\r\n" + length;
    }
    return "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + std::to_string(offset) + "-" +
           std::to_string(size - 1) + "/" + std::to_string(size) + "\r\n" + length;
  }
  [[nodiscard]] std::string fetched(const std::string &name = "a") const {
    return read_bytes(file(name));
  }
  [[nodiscard]] static std::vector<std::string> ranges(const scripted_server &server) {
    std::vector<std::string> all;
    for (const std::string &head : server.requests()) {
      all.push_back(range_header(head));
    }
    return all;
  }
  // The error for file a.
  static std::string of_a(const std::string &reason) { return "config/Wlan/a/1: " + reason; }

  const std::string bytes_ = noise(100'000);
  // Sends a part of the file, at most `part_` bytes, and closes the connection.
  size_t part_ = 40'000;
  const scripted_server::script breaks_ = [this](connection &with, const std::string &head,
                                                 unsigned) {
    const size_t from = offset_of(head);
    with.send(head_from(from, bytes_.size()) + bytes_.substr(from, part_));
    return false;
  };
  const scripted_server::script serves_ = [this](connection &with, const std::string &head,
                                                 unsigned) {
    const size_t from = offset_of(head);
    return with.send(head_from(from, bytes_.size()) + bytes_.substr(from));
  };
};

TEST_F(FileFetch, BringsAllFiles) {
  const scripted_server server([](connection &with, const std::string &head, unsigned) {
    return with.send(response("200 OK", "", head.substr(4, head.find(" HTTP") - 4)));
  });
  const std::string path = "/config/Wlan/n7/1";
  std::vector<wanted_file> files;
  for (int i = 0; i < 10; ++i) {
    files.push_back(wanted("n" + std::to_string(i), path.size()));
  }
  result all = fetch(server, files);
  EXPECT_EQ(all.end.wrong, "");
  std::ranges::sort(all.arrived);
  EXPECT_EQ(all.arrived, (results{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(fetched("n7"), path);
  EXPECT_LE(server.connections(), 8U);
}

TEST_F(FileFetch, OfNothingEndsAtOnce) {
  const scripted_server server(serves_);
  EXPECT_EQ(fetch(server, {}).end.wrong, "");
  EXPECT_EQ(server.connections(), 0U);
}

TEST_F(FileFetch, CreatesAnEmptyFile) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    return with.send(response("200 OK", "", ""));
  });
  const result all = fetch(server, {wanted("a", 0)});
  EXPECT_EQ(all.end.wrong, "");
  EXPECT_EQ(all.arrived, results{0});
  EXPECT_EQ(fetched(), "");
}

TEST_F(FileFetch, CreatesFilesThatOthersMayRead) {
  const scripted_server server(serves_);
  const mode_t mask = ::umask(022);
  const result all = fetch(server, {wanted("a", bytes_.size())});
  ::umask(mask);
  EXPECT_EQ(all.end.wrong, "");
  EXPECT_EQ(std::filesystem::status(file("a")).permissions(), std::filesystem::perms(0644));
}

TEST_F(FileFetch, EncodesThePath) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    return with.send(response("200 OK", "", "x"));
  });
  const wanted_file wanted{.path = "config/Wlan/a b?#%/1", .to = file("a"), .size = 1};
  EXPECT_EQ(fetch(server, {wanted}).end.wrong, "");
  EXPECT_TRUE(server.requests().front().starts_with("GET /config/Wlan/a%20b%3F%23%25/1 HTTP"));
}

TEST_F(FileFetch, ContinuesWhatHasArrivedBefore) {
  const scripted_server server(serves_);
  write_bytes(file("a"), bytes_.substr(0, 30'000));
  upstream from(options_for(server.url()), never);
  const result all = fetch(from, {wanted("a", bytes_.size())});
  EXPECT_EQ(all.end.wrong, "");
  EXPECT_EQ(fetched(), bytes_);
  EXPECT_EQ(ranges(server), std::vector<std::string>{"Range: bytes=30000-"});
  EXPECT_EQ(from.received(), 70'000U);
}

TEST_F(FileFetch, AsksForNothingThatIsThere) {
  const scripted_server server(serves_);
  write_bytes(file("a"), bytes_);
  const result all = fetch(server, {wanted("a", bytes_.size())});
  EXPECT_EQ(all.end.wrong, "");
  EXPECT_EQ(all.arrived, results{0});
  EXPECT_EQ(server.connections(), 0U);
}

TEST_F(FileFetch, BeginsAnewWhenMoreThanTheFileIsThere) {
  const scripted_server server(serves_);
  write_bytes(file("a"), bytes_ + "more");
  EXPECT_EQ(fetch(server, {wanted("a", bytes_.size())}).end.wrong, "");
  EXPECT_EQ(fetched(), bytes_);
  EXPECT_EQ(ranges(server), std::vector<std::string>{""});
}

TEST_F(FileFetch, ContinuesATransferThatBreaks) {
  const scripted_server server(breaks_);
  const result all = fetch(server, {wanted("a", bytes_.size())});
  EXPECT_EQ(all.end.wrong, "");
  EXPECT_EQ(all.arrived, results{0});
  EXPECT_EQ(fetched(), bytes_);
  EXPECT_EQ(ranges(server),
            (std::vector<std::string>{"", "Range: bytes=40000-", "Range: bytes=80000-"}));
}

TEST_F(FileFetch, ContinuesAsOftenAsThereIsProgress) {
  part_ = 10'000;
  const scripted_server server(breaks_);
  EXPECT_EQ(fetch(server, {wanted("a", bytes_.size())}).end.wrong, "");
  EXPECT_EQ(fetched(), bytes_);
  EXPECT_EQ(server.requests().size(), 10U);
}

TEST_F(FileFetch, ContinuesThreeTimesWithoutProgress) {
  part_ = 0;
  const scripted_server server(breaks_);
  EXPECT_EQ(failure(server, bytes_.size()),
            of_a("the connection ended before all 100000 bytes had arrived"));
  EXPECT_EQ(server.requests().size(), 4U);
}

TEST_F(FileFetch, IsNotKeptBusyByAByteAtATime) {
  part_ = 1;
  const scripted_server server(breaks_);
  EXPECT_EQ(failure(server, bytes_.size()),
            of_a("the connection ended before all 100000 bytes had arrived"));
  EXPECT_EQ(server.requests().size(), 4U);
}

TEST_F(FileFetch, IsNotKeptBusyByAServerThatIgnoresRangesAndBreaks) {
  const scripted_server server([this](connection &with, const std::string &, unsigned) {
    with.send(head_from(0, bytes_.size()) + bytes_.substr(0, 50'000));
    return false;
  });
  EXPECT_EQ(failure(server, bytes_.size()),
            of_a("the connection ended before all 100000 bytes had arrived"));
  EXPECT_EQ(server.requests().size(), 4U);
}

TEST_F(FileFetch, ReportsAServerThatClosesWithoutAnAnswer) {
  const scripted_server server([](connection &, const std::string &, unsigned) { return false; });
  EXPECT_EQ(failure(server, 10), of_a("the connection ended without an answer"));
  EXPECT_EQ(server.requests().size(), 4U);
}

TEST_F(FileFetch, KeepsWhatHasArrivedAfterAFailure) {
  const scripted_server server([this](connection &with, const std::string &head, unsigned number) {
    if (number > 0) {
      return with.send(response("503 Busy", "Retry-After: 9\r\n", ""));
    }
    return breaks_(with, head, number);
  });
  const result all = fetch(server, {wanted("a", bytes_.size())});
  EXPECT_EQ(all.end.wrong, of_a("status 503"));
  EXPECT_EQ(all.end.status, 503);
  EXPECT_EQ(all.end.retry_after, 9s);
  EXPECT_TRUE(all.arrived.empty());
  EXPECT_EQ(fetched(), bytes_.substr(0, 40'000));
}

TEST_F(FileFetch, TakesAWholeFileFromAServerThatIgnoresRanges) {
  const scripted_server server([this](connection &with, const std::string &, unsigned) {
    return with.send(response("200 OK", "", bytes_));
  });
  write_bytes(file("a"), "other bytes");
  EXPECT_EQ(fetch(server, {wanted("a", bytes_.size())}).end.wrong, "");
  EXPECT_EQ(fetched(), bytes_);
}

TEST_F(FileFetch, BeginsAnewOnceWhenTheRangeIsRefused) {
  const scripted_server server([this](connection &with, const std::string &head, unsigned number) {
    return range_header(head).empty()
               ? serves_(with, head, number)
               : with.send(response("416 x", "Content-Range: bytes */100000\r\n", ""));
  });
  write_bytes(file("a"), "partial");
  EXPECT_EQ(fetch(server, {wanted("a", bytes_.size())}).end.wrong, "");
  EXPECT_EQ(fetched(), bytes_);
  EXPECT_EQ(ranges(server), (std::vector<std::string>{"Range: bytes=7-", ""}));
}

TEST_F(FileFetch, ReportsARangeThatIsRefusedThoughNoneWasAskedFor) {
  for (const char *const status : {"416", "206"}) {
    const scripted_server server([status](connection &with, const std::string &, unsigned) {
      return with.send(
          response(status + std::string(" x"), "Content-Range: bytes 0-6/7\r\n", "partial"));
    });
    EXPECT_EQ(failure(server, 7), of_a("status " + std::string(status)));
    EXPECT_EQ(server.requests().size(), 1U);
  }
}

TEST_F(FileFetch, BeginsAnewWhenAnotherRangeComes) {
  for (const char *const range :
       {"", "Content-Range: bytes 8-99999/100000\r\n", "Content-Range: bytes 0-99999/100000\r\n",
        "Content-Range: nonsense\r\n"}) {
    const scripted_server server([&](connection &with, const std::string &head, unsigned number) {
      return range_header(head).empty() ? serves_(with, head, number)
                                        : with.send(response("206 x", range, bytes_.substr(8)));
    });
    write_bytes(file("a"), bytes_.substr(0, 7));
    EXPECT_EQ(fetch(server, {wanted("a", bytes_.size())}).end.wrong, "") << range;
    EXPECT_EQ(fetched(), bytes_) << range;
    EXPECT_EQ(server.requests().size(), 2U) << range;
  }
}

TEST_F(FileFetch, TakesARangeWithoutATotal) {
  const scripted_server server([this](connection &with, const std::string &, unsigned) {
    return with.send(response("206 x", "Content-Range: bytes 7-99999/*\r\n", bytes_.substr(7)));
  });
  write_bytes(file("a"), bytes_.substr(0, 7));
  EXPECT_EQ(fetch(server, {wanted("a", bytes_.size())}).end.wrong, "");
  EXPECT_EQ(fetched(), bytes_);
}

TEST_F(FileFetch, ReportsARangeOfAFileOfAnotherSize) {
  const scripted_server server([this](connection &with, const std::string &, unsigned) {
    return with.send(
        response("206 x", "Content-Range: bytes 7-99999/100001\r\n", bytes_.substr(7)));
  });
  write_bytes(file("a"), bytes_.substr(0, 7));
  EXPECT_EQ(failure(server, bytes_.size()), of_a("has 100001 bytes instead of 100000"));
  EXPECT_EQ(fetched(), bytes_.substr(0, 7));
}

TEST_F(FileFetch, WritesNothingOfAFileThatIsAnnouncedWithAnotherSize) {
  const scripted_server server(serves_);
  EXPECT_EQ(failure(server, 99'999), of_a("has 100000 bytes instead of 99999"));
  EXPECT_EQ(failure(server, 100'001), of_a("has 100000 bytes instead of 100001"));
  EXPECT_FALSE(exists(file("a")));
}

TEST_F(FileFetch, NeverWritesMoreThanTheSize) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    with.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
    while (with.send("3\r\nabc\r\n")) {
    }
    return false;
  });
  EXPECT_EQ(failure(server, 1000), of_a("more than 1000 bytes"));
  EXPECT_LE(fetched().size(), 1000U);
}

TEST_F(FileFetch, ReportsAChunkedFileThatIsTooShort) {
  const scripted_server server([](connection &with, const std::string &head, unsigned) {
    return range_header(head).empty() ? with.send(
                                            "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                                            "3\r\nabc\r\n0\r\n\r\n")
                                      : with.send(response("416 x", "", ""));
  });
  EXPECT_EQ(failure(server, 10), of_a("status 416"));
  EXPECT_LE(server.requests().size(), 5U);
}

TEST_F(FileFetch, TakesAFileWhoseConnectionBreaksAfterTheLastByte) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    with.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n");
    return false;
  });
  EXPECT_EQ(fetch(server, {wanted("a", 3)}).end.wrong, "");
  EXPECT_EQ(fetched(), "abc");
}

TEST_F(FileFetch, ReportsStatusesWithThePathPrintably) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    return with.send(response("404 Not Found", "", "no such file"));
  });
  const wanted_file wanted{.path = "config/Wlan/\x1b[1m/1", .to = file("a"), .size = 12};
  const result all = fetch(server, {wanted});
  EXPECT_EQ(all.end.wrong, "config/Wlan/?[1m/1: status 404");
  EXPECT_EQ(all.end.status, 404);
  EXPECT_FALSE(exists(file("a")));
}

TEST_F(FileFetch, DoesNotFollowARedirection) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    return with.send(response("301 x", "Location: http://h/x\r\n", ""));
  });
  EXPECT_EQ(failure(server, 5),
            of_a("status 301, a redirection to http://h/x, which is not followed"));
}

TEST_F(FileFetch, StartsNothingMoreAfterAFailure) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    return with.send(response("404 Not Found", "", ""));
  });
  std::vector<wanted_file> files;
  for (int i = 0; i < 1000; ++i) {
    files.push_back(wanted("n" + std::to_string(i), 5));
  }
  EXPECT_EQ(fetch(server, files).end.status, 404);
  EXPECT_LE(server.requests().size(), 8U);
}

TEST_F(FileFetch, EndsTheOthersAfterAFailure) {
  const scripted_server server([](connection &with, const std::string &head, unsigned) {
    if (head.find("/bad/") != std::string::npos) {
      return with.send(response("404 Not Found", "", ""));
    }
    with.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n12345");
    with.stay_silent();
    return false;
  });
  const auto begin = std::chrono::steady_clock::now();
  const result all = fetch(server, {wanted("a", 10), wanted("bad", 10)});
  EXPECT_EQ(all.end.wrong, "config/Wlan/bad/1: status 404");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
}

TEST_F(FileFetch, EndsWhenItIsStopped) {
  const scripted_server server([](connection &with, const std::string &, unsigned) {
    with.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n12345");
    with.stay_silent();
    return false;
  });
  upstream from(options_for(server.url()), stop_after(300ms));
  const auto begin = std::chrono::steady_clock::now();
  const result all = fetch(from, {wanted("a", 10)});
  EXPECT_EQ(all.end.wrong, "stopped");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
  EXPECT_EQ(fetched(), "12345");
}

TEST_F(FileFetch, DoesNotWriteThroughASymbolicLink) {
  const scripted_server server(serves_);
  write_bytes(file("target"), "untouched");
  std::filesystem::create_symlink(file("target"), file("a"));
  const std::string wrong = failure(server, bytes_.size());
  EXPECT_EQ(wrong, of_a("cannot create " + file("a") + ": Too many levels of symbolic links"));
  EXPECT_EQ(fetched("target"), "untouched");
}

TEST_F(FileFetch, DoesNotWriteToAFifo) {
  const scripted_server server(serves_);
  ASSERT_EQ(::mkfifo(file("a").c_str(), 0600), 0);
  EXPECT_EQ(failure(server, bytes_.size()),
            of_a("cannot create " + file("a") + ": No such device or address"));
}

TEST_F(FileFetch, ReportsAFolderThatIsMissing) {
  const scripted_server server(serves_);
  const wanted_file wanted{
      .path = "config/Wlan/a/1", .to = file("missing") + "/a", .size = bytes_.size()};
  EXPECT_EQ(fetch(server, {wanted}).end.wrong,
            of_a("cannot create " + file("missing") + "/a: No such file or directory"));
}

// No file of this process grows beyond a size. What exceeds it fails as on a full disk.
class file_size_limit {
 public:
  explicit file_size_limit(rlim_t size) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit lower{.rlim_cur = size, .rlim_max = before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &lower);
  }
  file_size_limit(const file_size_limit &) = delete;
  file_size_limit &operator=(const file_size_limit &) = delete;
  ~file_size_limit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST_F(FileFetch, ReportsADiskThatTakesNoMore) {
  const scripted_server server(serves_);
  std::string wrong;
  {
    const file_size_limit limit(50'000);
    wrong = failure(server, bytes_.size());
  }
  EXPECT_EQ(wrong, of_a("cannot write " + file("a") + ": File too large"));
  EXPECT_LE(fetched().size(), 50'000U);
  EXPECT_EQ(server.requests().size(), 1U);
}

}  // namespace
}  // namespace zot::test
